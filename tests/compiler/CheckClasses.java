// SPDX-License-Identifier: LicenseRef-qxkernel
import java.io.File;
import java.io.PrintWriter;
import java.io.StringWriter;
import java.nio.file.Files;
import org.objectweb.asm.ClassReader;
import org.objectweb.asm.util.CheckClassAdapter;

/** Reads every class of a directory with ASM and verifies its code by data flow. Prints faults, then the number of classes. */
public final class CheckClasses {
    public static void main(String[] args) throws Exception {
        int checked = 0;
        for (File file : new File(args[0]).listFiles()) {
            StringWriter faults = new StringWriter();
            CheckClassAdapter.verify(new ClassReader(Files.readAllBytes(file.toPath())), false, new PrintWriter(faults));
            if (faults.toString().length() > 0) System.out.println(file.getName() + ": " + faults);
            checked++;
        }
        System.out.println(checked + " checked");
    }
}
