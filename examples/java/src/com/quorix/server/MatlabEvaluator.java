// SPDX-License-Identifier: LicenseRef-qxkernel
package com.quorix.server;

import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;

/** Functions that formulas call by name: evalMat is called by native code, by several threads at once. */
public final class MatlabEvaluator {
    /** Fills out from the arguments, which lie one behind the other in in: the value for point i of argument k is
     * in[k * out.length + i]. Must not keep the arrays. */
    public interface PointFunction {
        void eval(double[] in, double[] out);
    }

    private static final Map<String, PointFunction> functions = new ConcurrentHashMap<>();

    private MatlabEvaluator() {}

    public static void register(String name, PointFunction function) {
        functions.put(name, function);
    }

    /** The status is not 0 for a name that nobody has registered. */
    public static int evalMat(String name, double[] in, double[] out) {
        PointFunction function = functions.get(name);
        if (function == null)
            return 1;
        function.eval(in, out);
        return 0;
    }
}
