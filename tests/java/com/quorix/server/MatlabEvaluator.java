// SPDX-License-Identifier: LicenseRef-qxkernel
package com.quorix.server;

/** Functions on flat arrays; some of them fail. */
public class MatlabEvaluator {
    public static volatile int calls;
    public static volatile boolean kept;

    public static int evalMat(String name, double[] in, double[] out) {
        ++calls;
        int n = out.length;
        switch (name) {
        case "sum": // of all arguments, point by point
            for (int i = 0; i < in.length; ++i)
                out[i % n] = (i < n ? 0 : out[i % n]) + in[i];
            return 0;
        case "damped":
            for (int i = 0; i < n; ++i)
                out[i] = Math.sin(in[i]) * Math.exp(-in[i]);
            return 0;
        case "dampedslope":
            for (int i = 0; i < n; ++i)
                out[i] = (Math.cos(in[i]) - Math.sin(in[i])) * Math.exp(-in[i]);
            return 0;
        case "square": // complex: real parts, then imaginary parts
            for (int i = 0; i < n / 2; ++i) {
                double re = in[i], im = in[n / 2 + i];
                out[i] = re * re - im * im;
                out[n / 2 + i] = 2 * re * im;
            }
            return 0;
        case "realsquare":
            for (int i = 0; i < n; ++i)
                out[i] = in[i] * in[i];
            return 0;
        case "bytes": // of texts: their number, and their sum as imaginary part
            out[0] = in.length;
            for (double b : in)
                out[1] += b;
            return 0;
        case "hole": // no value at negative points
            for (int i = 0; i < n; ++i)
                out[i] = Math.sqrt(in[i]);
            return 0;
        case "status":
            return 7;
        case "throws":
            throw new IllegalStateException("na\u00efve \ud83d\ude00 message");
        case "memory":
            return new long[1 << 28].length;
        case "overflow":
            return evalMat(name, in, out);
        case "quiet":
            throw new Quiet();
        case "lengths":
            return 1000 * in.length + out.length;
        case "T\u00e9\ud83d\ude00":
            return 42;
        default:
            return -1;
        }
    }

    /** Its text fails too. */
    static class Quiet extends RuntimeException {
        @Override
        public String toString() {
            throw new IllegalStateException("no text");
        }

        @Override
        public StackTraceElement[] getStackTrace() {
            throw new IllegalStateException("no stack");
        }
    }
}
