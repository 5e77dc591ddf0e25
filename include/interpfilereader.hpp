// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "interptable.hpp"

#include <iosfwd>

/// Reads tables from text.
///
/// Columns. Numbers separated by semicolons, commas or blanks (spaces, tabs), one point a line. With one axis the first
/// column ascends strictly and each further column is a function of it. With more axes the leading columns are the
/// coordinates, and the lines, in any order, form a full grid.
///
///     # conductivity of a steel                   x; y; pressure
///     T      k     c                              0; 0; 1.5
///     20     53.3  440                            1; 0; 1.7
///     100    50.7  488                            0; 2; 1.1 ...
///
/// Grid files. A comment line with the word grid, a line of points for each axis, and for each function a comment line
/// with the word data, after which its name may stand, and the values, first axis fastest, in lines of any length.
///
///     % grid
///     0 1 2
///     10 20
///     % data pressure
///     1.5 1.7 1.9   1.1 1.2 1.4
///
/// In both: % and # at the start of a line, or after a blank, begin a comment; empty lines do not count; a first line that
/// begins with no number holds the names of the columns; line ends of any system and a byte order mark are accepted.
/// Numbers are read as qxutil::scanDouble does, with the decimal point whatever the locale, and must be finite; a decimal
/// comma is recognised where it can be, and refused.
///
/// Fails (source "interpfilereader"), nothing is returned then: "Cannot_open_table_file" with "File"; "Invalid_table_file"
///       with "File", "Line" and "Column" (counted from 1; the column of numbers, not of characters; 0 for a whole line)
///       and "Reason"; std::bad_alloc
/// Cost:  linear in the text; grids from columns are sorted, n log n
class QX_API InterpFileReader
{
public:
    /// nAxes: how many leading columns are coordinates. 0 finds out: one if the first column ascends, or else as many as
    /// make a full grid. Grid files know by themselves; another number than theirs is refused.
    explicit InterpFileReader(int nAxes = 0) : nAxes_(nAxes) {}

    InterpTableData read(const std::string& path) const;
    /// name stands for the file in messages.
    InterpTableData read(std::istream& stream, const std::string& name) const;

private:
    int nAxes_;
};
