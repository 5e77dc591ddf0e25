// SPDX-License-Identifier: LicenseRef-qxkernel
package com.quorix.solver;

import java.util.function.IntConsumer;

/** Where the kernel's solvers report: eval is called by native code, on the thread that solves. */
public final class SolverCallback {
    private static final ThreadLocal<IntConsumer> listener = new ThreadLocal<>();

    private SolverCallback() {}

    /** What the calling thread's solves tell their events; null: nobody. */
    public static void setListener(IntConsumer consumer) {
        listener.set(consumer);
    }

    public static void eval(int code) {
        IntConsumer consumer = listener.get();
        if (consumer != null)
            consumer.accept(code);
    }
}
