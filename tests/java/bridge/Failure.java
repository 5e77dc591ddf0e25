// SPDX-License-Identifier: LicenseRef-qxkernel
package bridge;

/** What failures of native code become. */
public class Failure extends RuntimeException {
    public final String identifier;
    public final String[] arguments;
    public final String story;

    public Failure(String identifier, String[] arguments, String story, Throwable cause) {
        super(identifier, cause);
        this.identifier = identifier;
        this.arguments = arguments;
        this.story = story;
    }
}
