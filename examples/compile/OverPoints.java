// SPDX-License-Identifier: LicenseRef-qxkernel
import java.io.PrintStream;
import java.lang.reflect.Method;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.Arrays;
import java.util.List;

/**
 * Runs a compiled law at every row of a table: java -cp DIRECTORY OverPoints.java CLASS INPUTS POINTS.csv VALUES.csv
 *
 * INPUTS are names of columns, as x,y,T, in the order of the law. A program that knows its law calls Fin.eval(in, out) at
 * once; here the class is a word of the command line, so the call goes through reflection.
 */
public final class OverPoints {
    public static void main(String[] args) throws Exception {
        Class<?> law = Class.forName(args[0]);
        Method eval = law.getMethod("eval", double[].class, double[].class);
        double[] in = new double[law.getField("NARGIN").getInt(null)];
        double[] out = new double[law.getField("NARGOUT").getInt(null)];

        List<String> lines = Files.readAllLines(Paths.get(args[2]));
        List<String> header = Arrays.asList(lines.get(0).split(","));
        String[] names = args[1].split(",");
        int[] columns = new int[in.length];
        for (int k = 0; k < in.length; k++) columns[k] = header.indexOf(names[k]);

        try (PrintStream values = new PrintStream(args[3])) {
            for (int k = 0; k < out.length; k++) values.print((k > 0 ? "," : "") + "v" + k);
            values.println();
            for (String line : lines.subList(1, lines.size())) {
                String[] cells = line.split(",");
                for (int k = 0; k < in.length; k++) in[k] = Double.parseDouble(cells[columns[k]]);
                int status = (Integer) eval.invoke(null, in, out);
                if (status != 0) throw new ArithmeticException("status " + status + " at " + line);
                for (int k = 0; k < out.length; k++) values.print((k > 0 ? "," : "") + out[k]);
                values.println();
            }
        }
    }
}
