// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

/// Tables of reference values (tests/reference) and how well they are met.
namespace qxtest {

/// One line: a kind, a name, numbers.
struct ReferenceLine
{
    std::string name;
    std::vector<double> numbers;
    std::string text; ///< as it stands in the file
};

/// The lines of one kind; none if there is no such file.
inline std::vector<ReferenceLine> readReferences(const std::string& file, const std::string& kind)
{
    std::vector<ReferenceLine> lines;
    std::ifstream in(file);
    for (std::string text; std::getline(in, text);) {
        std::istringstream words(text);
        std::string first, word;
        ReferenceLine line;
        words >> first >> line.name;
        if (first != kind)
            continue;
        while (words >> word)
            line.numbers.push_back(std::strtod(word.c_str(), nullptr));
        line.text = text;
        lines.push_back(line);
    }
    return lines;
}

/// Points seen and the worst of them, by a key of the test's choice.
class Tally
{
public:
    void add(const std::string& key, double error, const std::string& where)
    {
        Row& row = rows_[key];
        ++row.points;
        if (!(error <= row.worst)) { // a NaN is the worst of all
            row.worst = error;
            row.where = where;
        }
    }

    struct Row
    {
        int points = 0;
        double worst = 0.0;
        std::string where;
    };
    const std::map<std::string, Row>& rows() const { return rows_; }

private:
    std::map<std::string, Row> rows_;
};

/// Relative error, down to where the value vanishes and cancellation takes over.
inline double relativeError(double got, double wanted) { return std::fabs(got - wanted) / std::fmax(std::fabs(wanted), 1e-3); }

} // namespace qxtest
