// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <string>
#include <vector>

/// What a program left behind.
struct Outcome
{
    int status;         ///< exit status, -1 when a signal ended it
    std::string out;
    std::string err;
};

/// Runs a program and waits for it.
Outcome run(const std::string& program, const std::vector<std::string>& arguments);

/// Whether this system lends terminals: in a bare chroot there is no /dev/pts.
bool hasTerminals();

/// Runs a program on a terminal of its own: out is all that it writes there, err is empty. As soon as the text `awaited`
/// has been written, `keys` are typed; "\x03" is the interrupt key.
Outcome runOnTerminal(const std::string& program, const std::vector<std::string>& arguments,
                      const std::string& awaited = "", const std::string& keys = "");

/// A directory for one test; gone with it.
class ScratchDirectory
{
public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    std::string path(const std::string& name) const { return directory_ + "/" + name; }
    /// Writes a file and gives its path.
    std::string file(const std::string& name, const std::string& text) const;
    /// The text of a file; empty if it is not there.
    static std::string read(const std::string& path);

private:
    std::string directory_;
};
