// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "optim/entrypoints_detail.hpp"

#include <functional>
#include <string>
#include <vector>

/// An optimizer that optimises nothing: it writes down each call and plays what a test has written into its script.
namespace recording {

/// The arguments of one call of the nonlinear optimizer, as the caller gave them.
struct NonlinearCall
{
    int start, nF, n, nxname, nFname, objRow, lenA, neA, lenG, neG;
    double objAdd;
    std::string problem, xnames, Fnames;
    std::vector<int> iA, jA, iG, jG;
    std::vector<double> A, xlow, xupp, Flow, Fupp;
    double *x, *xmul, *F, *Fmul;
    int *xstate, *Fstate;
    int lencw, leniw, lenrw;
    std::vector<HiddenLength> lengths;
    int *nInf;
    double* sInf;
    int* iw;
    /// Calls the user's function at x: status in, status out.
    std::function<int(int status, const double* x, bool needF, double* F, bool needG, double* G)> evaluate;
};

struct QuadraticCall
{
    std::string start, problem;
    int m, n, neA, lencObj, ncolH, iObj;
    std::vector<double> A, bl, bu, cObj;
    std::vector<int> indA, locA, eType;
    double *x, *rc, *objective;
    int *hs, *nInf, *iw;
    double* sInf;
    int lencw, leniw, lenrw;
    std::vector<HiddenLength> lengths;
    std::function<int(int status, const double* x, double* Hx)> multiply;
};

struct JacobianCall
{
    int nF, n, lenA, lenG;
    int *iA, *jA, *neA, *iG, *jG, *neG;
    double* A;
    std::function<int(int status, const double* x, double* F)> evaluate;
};

struct Script
{
    /// One line a call, for example: qxsnseti 'Check frequency' = 60 print 0.
    std::vector<std::string> calls;
    /// Lengths of the workspaces (cw in words) at each call of an optimizer.
    std::vector<std::vector<int>> lengths;

    std::vector<int> exits = {1};   ///< exit codes in order; the last one again and again
    int mincw = 500, miniw = 500, minrw = 500;
    int openInform = 0;
    int minorIterations = 0, majorIterations = 0;
    std::function<void(const NonlinearCall&)> onNonlinear;
    std::function<void(const QuadraticCall&)> onQuadratic;
    std::function<void(const JacobianCall&)> onJacobian;

    int nextExit()
    {
        const int code = exits.front();
        if (exits.size() > 1)
            exits.erase(exits.begin());
        return code;
    }
};

/// The script of this process, an entry point of the recording library.
using ScriptFunction = Script*();

} // namespace recording

extern "C" __attribute__((visibility("default"))) recording::Script* recordingScript();
