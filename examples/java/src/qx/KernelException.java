// SPDX-License-Identifier: LicenseRef-qxkernel
package qx;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Map;
import java.util.AbstractMap.SimpleImmutableEntry;

/** A failure of the kernel. Made by native code, which knows this constructor. */
public class KernelException extends RuntimeException {
    private static final long serialVersionUID = 1;
    private final String identifier;
    private final transient List<Map.Entry<String, String>> arguments;
    private final String story;

    public KernelException(String identifier, String[] keysAndValues, String story, Throwable cause) {
        super(identifier, cause);
        this.identifier = identifier;
        this.story = story;
        List<Map.Entry<String, String>> list = new ArrayList<>();
        for (int i = 0; i + 1 < keysAndValues.length; i += 2)
            list.add(new SimpleImmutableEntry<>(keysAndValues[i], keysAndValues[i + 1]));
        arguments = Collections.unmodifiableList(list);
    }

    /** A key that stays the same from version to version. */
    public String getIdentifier() {
        return identifier;
    }

    /** Named context, in order; a key may come several times. */
    public List<Map.Entry<String, String>> getArguments() {
        return arguments;
    }

    /** The value of the first argument with this key, or null. */
    public String getArgument(String key) {
        for (Map.Entry<String, String> argument : arguments)
            if (argument.getKey().equals(key))
                return argument.getValue();
        return null;
    }

    /** What happened, innermost entry first, one line each. */
    public String getStory() {
        return story;
    }
}
