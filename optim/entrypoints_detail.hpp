// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <cstddef>

// The entry points of the optimizer library, by the Fortran conventions of its published interface: every argument by
// address, the lengths of character arguments last, in the order of these arguments, as values.
//
// One declaration for all who call or define them: the drivers, the drop-in library and the recording library of the tests.
// The drivers never link against them: they take the types from here and the addresses from the opened library.

/// Length of a character argument. A callee that reads an int or a long finds the value in the same place.
using HiddenLength = std::size_t;

/// The three workspaces. lencw counts words of 8 characters.
#define QX_WORKSPACES char *cw, const int *lencw, int *iw, const int *leniw, double *rw, const int *lenrw
/// The user's own data, passed on to the user's function.
#define QX_USER_DATA char *cu, const int *lencu, int *iu, const int *leniu, double *ru, const int *lenru

extern "C" {

/// F and its Jacobian at x. status in: 0, 1 at the first call, at least 2 at the last one; out: unchanged, -1 where the
/// functions are undefined, -2 and below to stop. G holds the nonlinear pattern only.
using OptimUserFunction = void(int* status, const int* n, const double* x, const int* needF, const int* nF, double* F,
                               const int* needG, const int* lenG, double* G, QX_USER_DATA, HiddenLength cuLength);
/// Hx = H x over the first ncolH variables; status as above.
using OptimHessianFunction = void(const int* ncolH, const double* x, double* Hx, int* status, QX_USER_DATA,
                                  HiddenLength cuLength);

#define QX_ENTRY __attribute__((visibility("default"))) void

QX_ENTRY qxsninit(const int* iPrint, const int* iSumm, QX_WORKSPACES, HiddenLength cwLength);
QX_ENTRY qxsqinit(const int* iPrint, const int* iSumm, QX_WORKSPACES, HiddenLength cwLength);

QX_ENTRY qxsnset(const char* buffer, const int* iPrint, const int* iSumm, int* errors, QX_WORKSPACES,
                 HiddenLength bufferLength, HiddenLength cwLength);
QX_ENTRY qxsqset(const char* buffer, const int* iPrint, const int* iSumm, int* errors, QX_WORKSPACES,
                 HiddenLength bufferLength, HiddenLength cwLength);
QX_ENTRY qxsnseti(const char* buffer, const int* value, const int* iPrint, const int* iSumm, int* errors, QX_WORKSPACES,
                  HiddenLength bufferLength, HiddenLength cwLength);
QX_ENTRY qxsqseti(const char* buffer, const int* value, const int* iPrint, const int* iSumm, int* errors, QX_WORKSPACES,
                  HiddenLength bufferLength, HiddenLength cwLength);
QX_ENTRY qxsnsetr(const char* buffer, const double* value, const int* iPrint, const int* iSumm, int* errors,
                  QX_WORKSPACES, HiddenLength bufferLength, HiddenLength cwLength);
QX_ENTRY qxsqsetr(const char* buffer, const double* value, const int* iPrint, const int* iSumm, int* errors,
                  QX_WORKSPACES, HiddenLength bufferLength, HiddenLength cwLength);

/// info 104: the minimum lengths have been estimated.
QX_ENTRY qxsnmema(int* info, const int* nF, const int* n, const int* nxname, const int* nFname, const int* neA,
                  const int* neG, int* mincw, int* miniw, int* minrw, QX_WORKSPACES, HiddenLength cwLength);
QX_ENTRY qxsqmem(int* info, const int* m, const int* n, const int* neA, const int* lencObj, const int* ncolH, int* mincw,
                 int* miniw, int* minrw, QX_WORKSPACES, HiddenLength cwLength);

/// info 102: the structure of the Jacobian has been found.
QX_ENTRY qxsnjac(int* info, const int* nF, const int* n, OptimUserFunction* usrfun, int* iAfun, int* jAvar,
                 const int* lenA, int* neA, double* A, int* iGfun, int* jGvar, const int* lenG, int* neG, const double* x,
                 const double* xlow, const double* xupp, int* mincw, int* miniw, int* minrw, QX_USER_DATA, QX_WORKSPACES,
                 HiddenLength cuLength, HiddenLength cwLength);

/// start 0 cold, 1 from a basis file, 2 warm. One name of each kind: no names.
QX_ENTRY qxsnopta(const int* start, const int* nF, const int* n, const int* nxname, const int* nFname,
                  const double* objAdd, const int* objRow, const char* problem, OptimUserFunction* usrfun,
                  const int* iAfun, const int* jAvar, const int* lenA, const int* neA, const double* A, const int* iGfun,
                  const int* jGvar, const int* lenG, const int* neG, const double* xlow, const double* xupp,
                  const char* xnames, const double* Flow, const double* Fupp, const char* Fnames, double* x, int* xstate,
                  double* xmul, double* F, int* Fstate, double* Fmul, int* info, int* mincw, int* miniw, int* minrw,
                  int* nS, int* nInf, double* sInf, QX_USER_DATA, QX_WORKSPACES, HiddenLength problemLength,
                  HiddenLength xnamesLength, HiddenLength FnamesLength, HiddenLength cuLength, HiddenLength cwLength);

/// start "Cold" or "Warm"; A by columns, all indices from 1; bl, bu, eType, hs, x, rc over the n variables, then the m rows.
QX_ENTRY qxsqopt(const char* start, OptimHessianFunction* qpHx, const int* m, const int* n, const int* neA,
                 const int* nName, const int* lencObj, const int* ncolH, const int* iObj, const double* objAdd,
                 const char* problem, const double* A, const int* indA, const int* locA, const double* bl,
                 const double* bu, const double* cObj, const char* names, const int* eType, int* hs, double* x, double* pi,
                 double* rc, int* info, int* mincw, int* miniw, int* minrw, int* nS, int* nInf, double* sInf,
                 double* objective, QX_USER_DATA, QX_WORKSPACES, HiddenLength startLength, HiddenLength problemLength,
                 HiddenLength namesLength, HiddenLength cuLength, HiddenLength cwLength);

/// inform 0: the file is open for appending under this unit number.
QX_ENTRY qxsnopenappend(const int* unit, const char* name, int* inform, HiddenLength nameLength);
QX_ENTRY qxsnclose(const int* unit);
}
