// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "optim/entrypoints_detail.hpp"

#include <optional>
#include <string>
#include <string_view>

/// The options of a run, kept in the caller's workspaces: there is no call that would tell when a table of our own could go.
///
/// Words are compared without case and runs of blanks. The store lends the workspaces.
class OptionStore
{
public:
    explicit OptionStore(QX_WORKSPACES);

    /// 0, or the exit for workspaces that are too short: 82 characters, 83 integers, 84 numbers, 81 more than one kind.
    int storageExit() const;
    /// All options unset. Needs workspaces that are long enough, as the rest does.
    void initialise();
    bool isInitialised() const;

    /// False for a word, or a line, that means nothing.
    bool setInteger(std::string_view word, int value);
    bool setReal(std::string_view word, double value);
    bool setLine(std::string_view line);

    int integer(std::string_view word, int fallback) const;
    double real(std::string_view word, double fallback) const;
    bool isSet(std::string_view word) const;
    /// The last line for a property was this one: lineIs("maximize", "on").
    bool lineIs(std::string_view property, std::string_view value) const;

    /// Where a caller looks for the iteration counts; the one of major iterations, for a run that counts there.
    void setIterations(int count);
    int* adrMajorIterations();

private:
    int lencw_, leniw_, lenrw_;
    int* iw_;
    double* rw_;
};
