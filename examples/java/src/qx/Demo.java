// SPDX-License-Identifier: LicenseRef-qxkernel
package qx;

import java.util.Arrays;
import java.util.Locale;
import java.util.Map;
import java.util.concurrent.CountDownLatch;

/** A Java program that drives the kernel. Run: see README.md beside this folder. */
public final class Demo {
    private static final double[][] POINTS = {{0.0, 0.0}, {0.5, 0.25}, {1.0, 0.5}, {1.5, 0.75}, {2.0, 1.0}};

    private Demo() {}

    public static void main(String[] args) throws InterruptedException {
        try {
            formulas();
            errors();
            heat();
            cancel();
            twoAtOnce();
            closed();
        } catch (Library.LibraryMissing e) {
            System.err.println("qx.Demo: " + e.getMessage());
            System.exit(2);
        } catch (ExceptionInInitializerError e) {
            System.err.println("qx.Demo: " + e.getCause().getMessage());
            System.exit(2);
        }
    }

    /** Values and gradients; damped is a function written in Java, differentiated through the formula given for it. */
    private static void formulas() {
        System.out.println("1. A formula with a function written in Java, and its gradient");
        try (Formulas f = new Formulas("x", "y")) {
            withDamped(f).define("r2", "x^2+y^2");
            int wave = f.add("x*y+damped(r2)");
            double[][] values = f.gradient(POINTS, wave, "x", "y");
            print("        x        y         f     df/dx     df/dy");
            for (int i = 0; i < POINTS.length; ++i)
                print("%9.3f%9.3f%10.5f%10.5f%10.5f", POINTS[i][0], POINTS[i][1], values[i][0], values[i][1], values[i][2]);
        }
    }

    private static Formulas withDamped(Formulas f) {
        return f.function("damped", new String[] {"t"}, (in, out) -> {
            for (int i = 0; i < out.length; ++i)
                out[i] = Math.exp(-in[i]) * Math.cos(3 * in[i]);
        }, "-damped(t)-3*exp(-t)*sin(3*t)");
    }

    private static void errors() {
        System.out.println("\n2. Failures arrive as exceptions with their story");
        try (Formulas f = new Formulas("x", "y")) {
            f.add("x+z");
            f.evaluate(POINTS);
        } catch (KernelException e) {
            tell(e);
        }
        try (Formulas f = new Formulas("x", "y")) {
            f.define("depth", "log(x-1)");
            f.add("1+depth*y");
            f.evaluate(new double[][] {{2, 0}, {1, 0}});
        } catch (KernelException e) {
            tell(e);
        }
        try (Formulas f = new Formulas("x")) {
            f.function("picky", new String[] {"t"}, (in, out) -> {
                throw new IllegalArgumentException("no values today");
            });
            f.add("2*picky(x)");
            f.evaluate(new double[][] {{1}});
        } catch (KernelException e) {
            tell(e);
        }
        try (Formulas f = new Formulas("x", "y")) {
            f.add("x");
            f.evaluate(new double[][] {{1, 2}, {3}});
        } catch (KernelException e) {
            tell(e);
        }
    }

    private static void tell(KernelException e) {
        StringBuilder line = new StringBuilder("   " + e.getIdentifier());
        String separator = ": ";
        for (Map.Entry<String, String> argument : e.getArguments()) {
            if (argument.getKey().equals("Stack")) // the Java lines of a function, for logs
                continue;
            line.append(separator).append(argument.getKey()).append(" = ").append(argument.getValue());
            separator = ", ";
        }
        System.out.println(line);
    }

    /** u = sin(pi x) sin(pi y) solves -div((1+x) grad u) = q. */
    private static void heat() {
        int n = 159;
        System.out.println("\n3. Heat conduction in a square, against the exact solution");
        try (HeatProblem problem = new HeatProblem(n, "1+x",
                "2*pi^2*(1+x)*sin(pi*x)*sin(pi*y)-pi*cos(pi*x)*sin(pi*y)", "0")) {
            int[] seen = {0, 0};
            double[][] u = problem.solve(percent -> {
                ++seen[0];
                seen[1] = percent;
            });
            print("   %d unknowns, %d entries, progress up to %d %% (%s)", problem.unknowns(), problem.entries(), seen[1],
                    seen[0] > 3 ? "many events" : "few events");
            print("        x        y         u     exact");
            double worst = 0;
            for (int i = 0; i < n; ++i) {
                for (int j = 0; j < n; ++j) {
                    double x = (i + 1.0) / (n + 1), y = (j + 1.0) / (n + 1);
                    double exact = Math.sin(Math.PI * x) * Math.sin(Math.PI * y);
                    worst = Math.max(worst, Math.abs(u[i][j] - exact));
                    if (i % 40 == 39 && j == 79)
                        print("%9.3f%9.3f%10.5f%10.5f", x, y, u[i][j], exact);
                }
            }
            print("   largest error %s 1e-4", worst < 1e-4 ? "below" : "ABOVE");
        }
    }

    private static void cancel() throws InterruptedException {
        System.out.println("\n4. Thread.interrupt cancels a solve");
        try (HeatProblem problem = new HeatProblem(400, "1", "1", "0")) {
            CountDownLatch started = new CountDownLatch(1);
            String[] outcome = {"not cancelled"};
            Thread solver = new Thread(() -> {
                try {
                    problem.solve(percent -> started.countDown());
                } catch (CancelledException e) {
                    outcome[0] = "cancelled: " + e.getIdentifier();
                }
            });
            solver.start();
            started.await();
            solver.interrupt();
            solver.join();
            System.out.println("   " + outcome[0]);
        }
    }

    private static void twoAtOnce() throws InterruptedException {
        System.out.println("\n5. Two threads at once, each with its own objects");
        double[] results = new double[2];
        Thread[] threads = new Thread[2];
        for (int t = 0; t < 2; ++t) {
            int me = t;
            threads[t] = new Thread(() -> {
                try (Formulas f = withDamped(new Formulas("x", "y"));
                        HeatProblem problem = new HeatProblem(40, "1", "" + (me + 1), "0")) {
                    f.add((me + 1) + "*damped(x)");
                    double sum = 0;
                    for (int round = 0; round < 200; ++round)
                        sum = Arrays.stream(f.evaluate(POINTS)).mapToDouble(row -> row[0]).sum();
                    results[me] = sum + problem.solve(null)[20][20];
                }
            });
            threads[t].start();
        }
        for (Thread thread : threads)
            thread.join();
        print("   %.6f, and twice as much: %.6f", results[0], results[1]);
    }

    private static void closed() {
        System.out.println("\n6. Use after close is refused");
        Formulas f = new Formulas("x");
        f.close();
        f.close();
        try {
            f.add("x");
        } catch (IllegalStateException e) {
            System.out.println("   " + e.getMessage());
        }
    }

    private static void print(String format, Object... values) {
        System.out.printf(Locale.ROOT, format + "%n", values);
    }
}
