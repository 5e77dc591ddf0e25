// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

/// The operators with one fixed object inside every NodeMaker. The values never change: hosts pass
/// them when they make nodes, and they are keys of the sharing tables.
enum FunId {
    ABS = 1,
    AND,
    COS,
    EQ,
    EXP,
    GE,
    GT,
    LE,
    LOG,
    LT,
    MINUS,
    NE,
    NOT,
    OR,
    PLUS,
    PLUSSQ,
    POW,
    POWM2,
    POWM1,
    POW2,
    POW3,
    POW4,
    DIV,
    SIGN,
    SIN,
    SQRT,
    TIMES,
    UMINUS,
    UPLUS = 29
};
