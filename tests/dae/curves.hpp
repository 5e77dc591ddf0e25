// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "jet.hpp"

#include <map>
#include <random>
#include <string>

namespace qxtest {

/// Random smooth functions of time for all names, away from 0; a dummy is the derivative that it stands for.
class Curves
{
public:
    explicit Curves(unsigned seed) : random_(seed) {}

    Jet operator()(const std::string& name)
    {
        if (name == "t")
            return time_;
        const std::size_t dummy = name.find("_dummy");
        if (dummy != std::string::npos) {
            Jet jet = (*this)(name.substr(0, dummy));
            for (int k = std::stoi(name.substr(dummy + 6)); k > 0; --k)
                jet = timeDerivative(jet);
            return jet;
        }
        const auto [found, isNew] = jets_.insert({name, Jet()});
        if (isNew)
            for (int k = 0; k < Jet::n; ++k)
                found->second.c[k] = k == 0 ? std::uniform_real_distribution<>(0.7, 1.6)(random_)
                                            : std::uniform_real_distribution<>(-0.5, 0.5)(random_);
        return found->second;
    }

    void makeConstant(const std::string& name)
    {
        jets_[name] = Jet::constant(std::uniform_real_distribution<>(0.7, 1.6)(random_));
    }

private:
    std::mt19937 random_;
    std::map<std::string, Jet> jets_;
    Jet time_ = [] {
        Jet t = Jet::constant(0.4);
        t.c[1] = 1.0;
        return t;
    }();
};

} // namespace qxtest
