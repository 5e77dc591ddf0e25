// SPDX-License-Identifier: LicenseRef-qxkernel
package bench;

/** The same functions called by formulas and directly. */
public class Functions {
    public static int eval(boolean damped, double[] in, double[] out) {
        if (damped)
            damped(in, out);
        else
            parabola(in, out);
        return 0;
    }

    private static void damped(double[] in, double[] out) {
        for (int i = 0; i < out.length; ++i)
            out[i] = Math.sin(in[i]) * Math.exp(-in[i]);
    }

    private static void parabola(double[] in, double[] out) {
        for (int i = 0; i < out.length; ++i)
            out[i] = in[i] * in[i] + 1;
    }
}
