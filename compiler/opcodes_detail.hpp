// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

/// The instructions of the Java virtual machine that are used, apart from loads, stores and pushes.
namespace qxcompiler::op {

enum : int {
    nop = 0x00, iconst_m1 = 0x02, iconst_0 = 0x03, dconst_0 = 0x0E, dconst_1 = 0x0F, bipush = 0x10, ldc = 0x12,
    ldc_w = 0x13, ldc2_w = 0x14, daload = 0x31, aaload = 0x32, dastore = 0x52, pop = 0x57, pop2 = 0x58, dup = 0x59,
    dup_x2 = 0x5B, dup2 = 0x5C, dup2_x1 = 0x5D, dup2_x2 = 0x5E, swap = 0x5F, iadd = 0x60, dadd = 0x63, isub = 0x64,
    lsub = 0x65, dsub = 0x67, imul = 0x68, dmul = 0x6B, ddiv = 0x6F, dneg = 0x77, ishr = 0x7A, iinc = 0x84, i2d = 0x87,
    l2d = 0x8A, dcmpl = 0x97, dcmpg = 0x98, ifeq = 0x99, ifne = 0x9A, iflt = 0x9B, ifge = 0x9C, ifgt = 0x9D, ifle = 0x9E,
    if_icmpne = 0xA0, if_icmpge = 0xA2, if_icmple = 0xA4, goto_ = 0xA7, ireturn = 0xAC, dreturn = 0xAF, return_ = 0xB1, getstatic = 0xB2,
    invokevirtual = 0xB6, invokespecial = 0xB7, invokestatic = 0xB8, newarray = 0xBC, arraylength = 0xBE, wide = 0xC4
};

constexpr int arrayOfDouble = 7; // operand of newarray

} // namespace qxcompiler::op
