// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexception.hpp"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

/// The accumulating error record of an evaluation: lines of (key, value) text.
///
/// A layer that meets a failed value opens a line, newLine("evalnodes", __LINE__), and fills it with operator[]:
/// errors["message"] = "vareval". Copies are independent, yet cost the same for any number of lines: each line refers to
/// the one before it, and copies share the lines that they have in common, since a record is copied at every step that a
/// failed value takes up a graph. One object belongs to one thread.
class QX_API ErrInfo
{
public:
    /// Opens a new line that names the source unit and its line number.
    void newLine(const std::string& file, int number);
    /// The value of a key in the current line, made empty if it is not there. Without a line one is opened: ("", 0).
    std::string& operator[](const std::string& key);
    /// Takes over all lines of other, after the ones already here. Cost: the lines of other; none when this is empty.
    void append(const ErrInfo& other);

    bool isEmpty() const { return !last_; }
    std::size_t size() const { return last_ ? last_->count : 0; }
    /// The value of a key in line i; empty when the line does not have it. Cost: the lines from i on.
    /// Fails: std::out_of_range.
    std::string get(std::size_t i, const std::string& key) const;
    const std::string& getFile(std::size_t i) const { return line(i).file; }

    /// One exception entry a line, in line order: the identifier is the value of "message" ("Unexpected_NaN" without
    /// one), the other keys are its arguments.
    qxbase::Exception makeException() const;

private:
    struct Line
    {
        Line(const std::shared_ptr<Line>& previous, const std::string& f, int n)
            : before(previous), count(previous ? previous->count + 1 : 1), file(f), number(n)
        {
        }
        Line(const Line&) = default;
        ~Line();

        std::shared_ptr<Line> before;
        std::size_t count; // this line and all before it
        std::string file;
        int number;
        qxbase::ExceptionArgs values;
    };

    const Line& line(std::size_t i) const;
    std::vector<const Line*> lines() const;

    std::shared_ptr<Line> last_; // copied before it is written when another record or line refers to it
};
