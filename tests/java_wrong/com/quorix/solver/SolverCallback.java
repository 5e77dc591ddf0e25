// SPDX-License-Identifier: LicenseRef-qxkernel
package com.quorix.solver;

/** The class without the method: another signature, and one that is not static. */
public class SolverCallback {
    public static void eval(long code) {}

    public void eval(int code) {}
}
