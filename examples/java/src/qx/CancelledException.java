// SPDX-License-Identifier: LicenseRef-qxkernel
package qx;

/** The user stopped the run. */
public class CancelledException extends KernelException {
    private static final long serialVersionUID = 1;

    public CancelledException(String identifier, String[] keysAndValues, String story, Throwable cause) {
        super(identifier, keysAndValues, story, cause);
    }
}
