// SPDX-License-Identifier: LicenseRef-qxkernel
package qx;

import com.quorix.solver.SolverCallback;

import java.util.function.IntConsumer;

/** Heat conduction in the unit square: -div(k grad u) = q, u given at the edge, by finite volumes on n by n cells. */
public final class HeatProblem extends NativeObject {
    /** Assembles the equations; conductivity, source and edge are formulas of x and y. */
    public HeatProblem(int n, String conductivity, String source, String edge) {
        super(assemble(n, conductivity, source, edge));
    }

    public synchronized int unknowns() {
        return unknowns(address());
    }

    public synchronized long entries() {
        return entries(address());
    }

    /** The temperatures in the cells, by row i at x = (i+1)/(n+1) and column j at y = (j+1)/(n+1). Progress in per cent
     * goes to the listener, on this thread. An interrupt of this thread ends the solve with a CancelledException; the
     * problem can be solved again. */
    public synchronized double[][] solve(IntConsumer listener) {
        SolverCallback.setListener(listener);
        try {
            return solve(address());
        } finally {
            SolverCallback.setListener(null);
        }
    }

    @Override
    void release(long old) {
        destroy(old);
    }

    private static native long assemble(int n, String conductivity, String source, String edge);
    private static native void destroy(long address);
    private static native int unknowns(long address);
    private static native long entries(long address);
    private static native double[][] solve(long address);
}
