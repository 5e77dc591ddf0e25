// SPDX-License-Identifier: LicenseRef-qxkernel
package bridge;

import java.io.File;
import java.net.URL;
import java.net.URLClassLoader;

/** Loads a native library and asks it; prints a line for each answer that is as it should be. */
public class Main {
    static native boolean knowsMachine();
    static native boolean findsMachine();
    static native void eventFromNativeThread(int code);
    static native String parentheses(int depth);
    static native String derivative(int depth);
    static native int[] backAndForth(int[] values, int times);
    static native void raise(String identifier);

    /** Arguments: the library, a class path that only the context class loader knows. */
    public static void main(String[] args) throws Exception {
        ClassLoader loader = new URLClassLoader(new URL[] {new File(args[1]).toURI().toURL()});
        Thread.currentThread().setContextClassLoader(loader);
        System.load(args[0]);

        check("machine-from-loading", knowsMachine());
        check("machine-from-symbol", findsMachine());

        eventFromNativeThread(21);
        Class<?> solver = Class.forName("com.quorix.solver.SolverCallback", true, loader);
        check("context-class-loader", solver.getField("last").getInt(null) == 21);

        int[] values = backAndForth(new int[] {1, 2, 3}, 100000);
        check("hundred-thousand-conversions", values.length == 3 && values[2] == 3);

        String[] deep = new String[4];
        for (long stack : new long[] {320 << 10, 1 << 20}) {
            Thread small = new Thread(null, () -> {
                deep[0] = parentheses(1000000);
                deep[1] = derivative(3000);
                deep[2] = parentheses(10);
                deep[3] = derivative(3);
            }, "small stack", stack);
            small.start();
            small.join();
            System.out.println("deep " + (stack >> 10) + ": " + String.join(" ", deep));
        }
        System.out.println("main: " + parentheses(1000000) + " " + derivative(3000));

        try {
            raise("Some_identifier");
        } catch (RuntimeException e) {
            check("exception", e.getMessage().contains("Some_identifier"));
        }
    }

    private static void check(String name, boolean good) {
        System.out.println((good ? "ok " : "FAILED ") + name);
    }
}
