// SPDX-License-Identifier: LicenseRef-qxkernel
package qx;

import com.quorix.server.MatlabEvaluator;

/** Formulas over points. Points are rows, their columns the variables. */
public final class Formulas extends NativeObject {
    public Formulas(String... variables) {
        super(create(variables));
    }

    /** A name for an expression of variables and other definitions. */
    public synchronized Formulas define(String name, String expression) {
        define(address(), name, expression);
        return this;
    }

    /** A function written in Java. It is called once for all points. Names are shared by all Formulas. The partial
     * derivatives are formulas of the parameters; without them the function cannot be differentiated. */
    public synchronized Formulas function(String name, String[] parameters, MatlabEvaluator.PointFunction body,
            String... derivatives) {
        function(address(), name, parameters, derivatives);
        MatlabEvaluator.register(name, body);
        return this;
    }

    /** A formula to evaluate; gives its number. */
    public synchronized int add(String expression) {
        return add(address(), expression);
    }

    /** A row for each point, a column for each formula. */
    public synchronized double[][] evaluate(double[][] points) {
        return evaluate(address(), points);
    }

    /** A row for each point: the value of a formula and its derivatives by variables. */
    public synchronized double[][] gradient(double[][] points, int formula, String... by) {
        return gradient(address(), points, formula, by);
    }

    @Override
    void release(long old) {
        destroy(old);
    }

    private static native long create(String[] variables);
    private static native void destroy(long address);
    private static native void define(long address, String name, String expression);
    private static native void function(long address, String name, String[] parameters, String[] derivatives);
    private static native int add(long address, String expression);
    private static native double[][] evaluate(long address, double[][] points);
    private static native double[][] gradient(long address, double[][] points, int formula, String[] by);
}
