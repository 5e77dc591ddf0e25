#pragma once

#include "qxexception.hpp"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

/// The accumulating error record of an evaluation: lines of (key, value) text.
///
/// A layer that meets a failed value opens a line, newLine("evalnodes", __LINE__), and fills it with operator[]:
/// errors["message"] = "vareval". Copies are independent; they share the lines that neither changes, since a record is
/// copied at every step that a failed value takes up a graph. One object belongs to one thread.
class QX_API ErrInfo
{
public:
    /// Opens a new line that names the source unit and its line number.
    void newLine(const std::string& file, int number);
    /// The value of a key in the current line, made empty if it is not there. Without a line one is opened: ("", 0).
    std::string& operator[](const std::string& key);
    /// Takes over all lines of other, after the ones already here.
    void append(const ErrInfo& other);

    bool isEmpty() const { return lines_.empty(); }
    std::size_t size() const { return lines_.size(); }
    /// The value of a key in line i; empty when the line does not have it.
    std::string get(std::size_t i, const std::string& key) const;
    const std::string& getFile(std::size_t i) const { return lines_.at(i)->file; }

    /// One exception entry a line, in line order: the identifier is the value of "message" ("Unexpected_NaN" without
    /// one), the other keys are its arguments.
    qxbase::Exception makeException() const;

private:
    struct Line
    {
        std::string file;
        int number;
        qxbase::ExceptionArgs values;
    };
    std::vector<std::shared_ptr<Line>> lines_; // a line held by another record too is copied before it is written
};
