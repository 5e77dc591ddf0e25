// SPDX-License-Identifier: LicenseRef-qxkernel
package qx;

import java.io.File;

/** Loads the native half of this package. */
final class Library {
    private Library() {}

    /** From the file that the property qx.library names, else by its name from java.library.path. */
    static void load() {
        String file = System.getProperty("qx.library");
        try {
            if (file != null)
                System.load(new File(file).getAbsolutePath());
            else
                System.loadLibrary("qxjava");
            start();
        } catch (UnsatisfiedLinkError e) {
            throw new LibraryMissing((file != null ? "cannot load " + file : "no library qxjava in java.library.path")
                    + " (start Java with -Dqx.library=/path/to/libqxjava.so): " + e.getMessage());
        }
    }

    private static native void start();

    /** The kernel is not there; the message says what was tried. */
    static final class LibraryMissing extends LinkageError {
        private static final long serialVersionUID = 1;

        LibraryMissing(String message) {
            super(message);
        }
    }
}
