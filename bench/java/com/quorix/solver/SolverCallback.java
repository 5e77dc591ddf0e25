// SPDX-License-Identifier: LicenseRef-qxkernel
package com.quorix.solver;

public class SolverCallback {
    public static int sum;

    public static void eval(int code) {
        sum += code;
    }
}
