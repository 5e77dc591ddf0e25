// SPDX-License-Identifier: LicenseRef-qxkernel
#include "recording.hpp"

#include <cstdio>

using recording::Script;

namespace {

Script& script() { return *recordingScript(); }

std::string text(const char* start, HiddenLength length) { return {start, length}; }

template <class T>
std::vector<T> copy(const T* from, int count)
{
    return {from, from + count};
}

std::string number(double value)
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g", value);
    return buffer;
}

void note(const std::string& line) { script().calls.push_back(line); }

void noteOption(const char* name, const std::string& option, const std::string& value, int print)
{
    note(std::string(name) + " '" + option + "'" + (value.empty() ? "" : " = " + value) + " print " + std::to_string(print));
}

void noteInit(const char* name, int print, int summary, int lencw, int leniw, int lenrw)
{
    note(std::string(name) + " " + std::to_string(print) + " " + std::to_string(summary) + " lengths " +
         std::to_string(lencw) + " " + std::to_string(leniw) + " " + std::to_string(lenrw));
}

} // namespace

recording::Script* recordingScript()
{
    static Script instance;
    return &instance;
}

#define UNUSED_WORKSPACES (void)cw, (void)lencw, (void)iw, (void)leniw, (void)rw, (void)lenrw

void qxsninit(const int* iPrint, const int* iSumm, QX_WORKSPACES, HiddenLength)
{
    UNUSED_WORKSPACES;
    noteInit("qxsninit", *iPrint, *iSumm, *lencw, *leniw, *lenrw);
}
void qxsqinit(const int* iPrint, const int* iSumm, QX_WORKSPACES, HiddenLength)
{
    UNUSED_WORKSPACES;
    noteInit("qxsqinit", *iPrint, *iSumm, *lencw, *leniw, *lenrw);
}

#define OPTION_ENTRIES(sn)                                                                                              \
    void qx##sn##set(const char* buffer, const int* iPrint, const int*, int*, QX_WORKSPACES, HiddenLength length,       \
                     HiddenLength)                                                                                      \
    {                                                                                                                   \
        UNUSED_WORKSPACES;                                                                                              \
        noteOption("qx" #sn "set", text(buffer, length), "", *iPrint);                                                  \
    }                                                                                                                   \
    void qx##sn##seti(const char* buffer, const int* value, const int* iPrint, const int*, int*, QX_WORKSPACES,         \
                      HiddenLength length, HiddenLength)                                                                \
    {                                                                                                                   \
        UNUSED_WORKSPACES;                                                                                              \
        noteOption("qx" #sn "seti", text(buffer, length), std::to_string(*value), *iPrint);                             \
    }                                                                                                                   \
    void qx##sn##setr(const char* buffer, const double* value, const int* iPrint, const int*, int*, QX_WORKSPACES,      \
                      HiddenLength length, HiddenLength)                                                                \
    {                                                                                                                   \
        UNUSED_WORKSPACES;                                                                                              \
        noteOption("qx" #sn "setr", text(buffer, length), number(*value), *iPrint);                                     \
    }
OPTION_ENTRIES(sn)
OPTION_ENTRIES(sq)

void qxsnmema(int* info, const int* nF, const int* n, const int* nxname, const int* nFname, const int* neA,
              const int* neG, int* mincw, int* miniw, int* minrw, QX_WORKSPACES, HiddenLength)
{
    UNUSED_WORKSPACES;
    note("qxsnmema " + std::to_string(*nF) + " " + std::to_string(*n) + " names " + std::to_string(*nxname) + " " +
         std::to_string(*nFname) + " entries " + std::to_string(*neA) + " " + std::to_string(*neG));
    *info = 104;
    *mincw = script().mincw;
    *miniw = script().miniw;
    *minrw = script().minrw;
}

void qxsqmem(int* info, const int* m, const int* n, const int* neA, const int* lencObj, const int* ncolH, int* mincw,
             int* miniw, int* minrw, QX_WORKSPACES, HiddenLength)
{
    UNUSED_WORKSPACES;
    note("qxsqmem " + std::to_string(*m) + " " + std::to_string(*n) + " entries " + std::to_string(*neA) + " linear " +
         std::to_string(*lencObj) + " quadratic " + std::to_string(*ncolH));
    *info = 104;
    *mincw = script().mincw;
    *miniw = script().miniw;
    *minrw = script().minrw;
}

void qxsnjac(int* info, const int* nF, const int* n, OptimUserFunction* usrfun, int* iAfun, int* jAvar, const int* lenA,
             int* neA, double* A, int* iGfun, int* jGvar, const int* lenG, int* neG, const double*, const double*,
             const double*, int*, int*, int*, QX_USER_DATA, QX_WORKSPACES, HiddenLength cuLength, HiddenLength)
{
    UNUSED_WORKSPACES;
    note("qxsnjac");
    const recording::JacobianCall call{
        *nF, *n, *lenA, *lenG, iAfun, jAvar, neA, iGfun, jGvar, neG, A,
        [=](int status, const double* x, double* F) {
            const int needF = 1, needG = 0;
            usrfun(&status, n, x, &needF, nF, F, &needG, lenG, nullptr, cu, lencu, iu, leniu, ru, lenru, cuLength);
            return status;
        }};
    if (script().onJacobian)
        script().onJacobian(call);
    *info = script().nextExit();
}

void qxsnopta(const int* start, const int* nF, const int* n, const int* nxname, const int* nFname, const double* objAdd,
              const int* objRow, const char* problem, OptimUserFunction* usrfun, const int* iAfun, const int* jAvar,
              const int* lenA, const int* neA, const double* A, const int* iGfun, const int* jGvar, const int* lenG,
              const int* neG, const double* xlow, const double* xupp, const char* xnames, const double* Flow,
              const double* Fupp, const char* Fnames, double* x, int* xstate, double* xmul, double* F, int* Fstate,
              double* Fmul, int* info, int*, int*, int*, int*, int* nInf, double* sInf, QX_USER_DATA, QX_WORKSPACES,
              HiddenLength problemLength, HiddenLength xnamesLength, HiddenLength FnamesLength, HiddenLength cuLength,
              HiddenLength cwLength)
{
    UNUSED_WORKSPACES;
    note("qxsnopta");
    script().lengths.push_back({*lencw, *leniw, *lenrw});
    iw[420] = script().minorIterations;
    iw[421] = script().majorIterations;
    if (script().onNonlinear) {
        const recording::NonlinearCall call{
            *start, *nF, *n, *nxname, *nFname, *objRow, *lenA, *neA, *lenG, *neG, *objAdd, text(problem, problemLength),
            text(xnames, xnamesLength), text(Fnames, FnamesLength), copy(iAfun, *neA), copy(jAvar, *neA),
            copy(iGfun, *neG), copy(jGvar, *neG), copy(A, *neA), copy(xlow, *n), copy(xupp, *n), copy(Flow, *nF),
            copy(Fupp, *nF), x, xmul, F, Fmul, xstate, Fstate, *lencw, *leniw, *lenrw,
            {problemLength, xnamesLength, FnamesLength, cuLength, cwLength}, nInf, sInf, iw,
            [=](int status, const double* at, bool needF, double* values, bool needG, double* G) {
                const int wantF = needF, wantG = needG;
                usrfun(&status, n, at, &wantF, nF, values, &wantG, neG, G, cu, lencu, iu, leniu, ru, lenru, cuLength);
                return status;
            }};
        script().onNonlinear(call);
    }
    *info = script().nextExit();
}

void qxsqopt(const char* start, OptimHessianFunction* qpHx, const int* m, const int* n, const int* neA, const int*,
             const int* lencObj, const int* ncolH, const int* iObj, const double*, const char* problem, const double* A,
             const int* indA, const int* locA, const double* bl, const double* bu, const double* cObj, const char*,
             const int* eType, int* hs, double* x, double*, double* rc, int* info, int*, int*, int*, int*, int* nInf,
             double* sInf, double* objective, QX_USER_DATA, QX_WORKSPACES, HiddenLength startLength,
             HiddenLength problemLength, HiddenLength namesLength, HiddenLength cuLength, HiddenLength cwLength)
{
    UNUSED_WORKSPACES;
    note("qxsqopt");
    script().lengths.push_back({*lencw, *leniw, *lenrw});
    iw[420] = script().minorIterations;
    if (script().onQuadratic) {
        const recording::QuadraticCall call{
            text(start, startLength), text(problem, problemLength), *m, *n, *neA, *lencObj, *ncolH, *iObj,
            copy(A, *neA), copy(bl, *n + *m), copy(bu, *n + *m), copy(cObj, *lencObj), copy(indA, *neA),
            copy(locA, *n + 1), copy(eType, *n + *m), x, rc, objective, hs, nInf, iw, sInf, *lencw, *leniw, *lenrw,
            {startLength, problemLength, namesLength, cuLength, cwLength},
            [=](int status, const double* at, double* Hx) {
                qpHx(ncolH, at, Hx, &status, cu, lencu, iu, leniu, ru, lenru, cuLength);
                return status;
            }};
        script().onQuadratic(call);
    }
    *info = script().nextExit();
}

void qxsnopenappend(const int* unit, const char* name, int* inform, HiddenLength length)
{
    note("qxsnopenappend " + std::to_string(*unit) + " '" + text(name, length) + "'");
    *inform = script().openInform;
}

void qxsnclose(const int* unit) { note("qxsnclose " + std::to_string(*unit)); }
