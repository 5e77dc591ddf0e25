// SPDX-License-Identifier: LicenseRef-qxkernel
package com.quorix.solver;

import java.util.concurrent.atomic.AtomicInteger;

/** Counts events; negative codes are failures of several kinds. */
public class SolverCallback {
    public static final AtomicInteger calls = new AtomicInteger();
    public static volatile int last;

    public static void eval(int code) throws Exception {
        switch (code) {
        case -1:
            throw new IllegalStateException("event -1");
        case -2:
            throw new Exception("checked");
        case -3:
            throw new OutOfMemoryError("staged");
        case -4:
            eval(-4); // StackOverflowError
            break;
        default:
            calls.incrementAndGet();
            last = code;
        }
    }

    public static int getCalls() {
        return calls.get();
    }
}
