// SPDX-License-Identifier: LicenseRef-qxkernel
package com.quorix.server;

import bench.Functions;

public class MatlabEvaluator {
    public static int evalMat(String name, double[] in, double[] out) {
        return Functions.eval(name.equals("damped"), in, out);
    }
}
