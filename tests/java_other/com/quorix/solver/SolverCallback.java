// SPDX-License-Identifier: LicenseRef-qxkernel
package com.quorix.solver;

/** Another class of the same name. */
public class SolverCallback {
    public static int last;

    public static void eval(int code) {
        last = -code;
    }
}
