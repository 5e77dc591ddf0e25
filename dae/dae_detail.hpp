// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "dae.hpp"
#include "structure_detail.hpp"

/// What a Dae was before a step that may fail: the destructor brings it back unless the step has been kept.
class Dae::Snapshot
{
public:
    explicit Snapshot(Dae& dae) : dae_(dae), vars_(dae.vars_), eqs_(dae.eqs_), varIndex_(dae.varIndex_) {}
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;
    ~Snapshot()
    {
        if (kept_)
            return;
        dae_.vars_.swap(vars_);
        dae_.eqs_.swap(eqs_);
        dae_.varIndex_.swap(varIndex_);
    }
    void keep() { kept_ = true; }

private:
    Dae& dae_;
    std::vector<Var> vars_;
    std::vector<Eq> eqs_;
    std::unordered_map<const ExprVar*, int> varIndex_;
    bool kept_ = false;
};

/// The text of a Dae as the structural half sees it.
class Dae::TextEquations final : public qxdae::Equations
{
public:
    explicit TextEquations(const Dae& dae, const qxutil::RunInfo* info = nullptr) : dae_(dae), info_(info) {}
    /// What occurs in the equations that are there; kept, since texts are not looked at twice.
    const std::vector<qxdae::Row>& readRows();
    void getOccurrences(int eq, qxdae::Row& pairs) override;
    /// By the rules for expressions, on a copy in canonical form.
    Eq differentiate(int eq) override;

private:
    const Dae& dae_;
    const qxutil::RunInfo* info_;
    std::vector<qxdae::Row> rows_;
};
