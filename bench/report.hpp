// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "measure.hpp"

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace qxbench {

/// What one line of the table says: ours against one peer, or ours alone.
struct Row
{
    std::string group;
    std::string name;
    std::string peer;           ///< empty: no peer
    std::string failure;        ///< not empty: no times, and why
    Spread ours;                ///< seconds a call
    Spread theirs;
    Spread ratio;               ///< ours/peer, of the rounds
    double goal = 0.0;          ///< largest allowed ratio; 0: none
    double difference = -1.0;   ///< as check() measured it; negative: not checked
    double bytes = 0.0;         ///< a call
    double bandwidth = 0.0;     ///< bytes a second that memory gives, 0: not asked for
    double items = 0.0;         ///< a call
    std::string itemUnit;
    int threads = 1;
    int rounds = 0;

    bool missesGoal() const { return goal > 0.0 && ratio.median > goal; }
};

/// The facts without which a time says nothing.
struct Machine
{
    std::string compiler;
    std::string flags;
    std::string cpu;
    int cores = 1;
    std::string date;
    std::string commit;
    bool quick = false; ///< times of a quick run say little
    std::vector<std::pair<std::string, std::string>> versions{}; ///< of the library and its peers
};
Machine thisMachine(const std::string& commit);

/// One table a group, rows in the order they were run, with the geometric mean of the ratios and the worst one.
void printTables(std::ostream& out, const Machine& machine, const std::vector<Row>& rows);
void writeJson(std::ostream& out, const std::string& program, const Machine& machine, const std::vector<Row>& rows);

} // namespace qxbench
