// SPDX-License-Identifier: LicenseRef-qxkernel
package qx;

/** An object of the kernel. Belongs to whoever opened it: close it, best by try-with-resources. Methods of one object wait
 * for each other; different objects work at once. */
abstract class NativeObject implements AutoCloseable {
    private long address;

    static {
        Library.load();
    }

    NativeObject(long address) {
        this.address = address;
    }

    /** Where it lies. Called by synchronized methods only, so that it cannot be closed meanwhile. */
    final long address() {
        if (address == 0)
            throw new IllegalStateException(getClass().getSimpleName() + " is closed");
        return address;
    }

    @Override
    public final synchronized void close() {
        long old = address;
        address = 0;
        if (old != 0)
            release(old);
    }

    abstract void release(long old);
}
