#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-qxkernel
"""A second writer of generated classes, written from the class file format and the description of the code in
docs/pages/compiler.md: same formulas, same bytes. It shares nothing with the library; the passes are written down plainly,
with dictionaries and without care for speed.

usage: class_writer.py LIST...      prints a line for each LIST: its name and the class in hexadecimal
       class_writer.py --formulas   prints the lists, in the format of class_formulas.txt

A list is in class_formulas.txt: "name", then lines "in a b", "def y=...", "out y", each list ended by a blank line.
"""
import math
import re
import struct
import sys

COMMUTATIVE = {"and", "==", "max", "min", "!=", "or", "+", "*"}
EPS = 2.0 ** -52


# ---- lists and passes ---------------------------------------------------------------------------------------------------

class Def:
    def __init__(self, op, args=(), value=None):
        self.op, self.args, self.value = op, list(args), value


def read_number(text):
    found = re.match(r"\s*[+-]?(\d+\.?\d*([eE][+-]?\d+)?|\.\d+([eE][+-]?\d+)?)", text)
    return float(found.group(0)) if found else 0.0


def prepare(defs, inputs, outputs):
    """Definitions by position, inputs as -1, -2, ..."""
    ids = {name: -1 - i for i, name in enumerate(inputs)}
    for u, text in enumerate(defs):
        ids[text.split("=", 1)[0]] = u
    table = []
    for text in defs:
        right = text.split("=", 1)[1]
        if "(" in right:
            op, args = right[:-1].split("(", 1)
            table.append(Def(op, [ids[a] for a in args.split(",")]))
        else:
            table.append(Def("const", value=read_number(right)))
    outs, seen = [], set()
    for name in outputs:
        d = ids[name]
        if d < 0 or d in seen:
            table.append(Def("identity", [d]))
            d = len(table) - 1
        seen.add(d)
        outs.append(d)
    return table, outs


def sort(table, outs):
    """Depth first, the last argument's subtree first."""
    order, state = [], {}
    for o in outs:
        stack = [o] if o not in state else []
        while stack:
            d = stack.pop()
            if state.get(d) == 1:
                state[d] = 2
                order.append(d)
            elif d not in state:
                state[d] = 1
                stack.append(d)
                stack += [a for a in table[d].args if a >= 0]
    pos = {d: i for i, d in enumerate(order)}
    last = dict(pos)
    for i, d in enumerate(order):
        for a in table[d].args:
            if a >= 0:
                last[a] = i
    return order, pos, last


def eliminate(table, outs, order):
    alias, known = {}, {}
    for d in order:
        f = table[d]
        f.args = [alias[a] if a >= 0 else a for a in f.args]
        src = [table[a] if a >= 0 else None for a in f.args]
        if f.args and all(s is not None and s.op == "const" for s in src):
            v = [s.value for s in src]
            folded = {"U+": lambda: v[0], "U-": lambda: -v[0], "+": lambda: v[0] + v[1], "-": lambda: v[0] - v[1],
                      "*": lambda: v[0] * v[1],
                      "/": lambda: v[0] / v[1] if v[1] != 0 and math.isfinite(v[0] / v[1]) else None}.get(f.op, lambda: None)()
            if folded is not None:
                f.op, f.args, f.value, src = "const", [], folded, []
        neg = [s is not None and s.op == "U-" for s in src]
        if f.op == "U-" and neg[0]:
            f.op, f.args = "identity", [src[0].args[0]]
        elif f.op == "-" and neg[1]:
            f.op, f.args = "+", [f.args[0], src[1].args[0]]
        elif f.op == "+" and neg[1]:
            f.op, f.args = "-", [f.args[0], src[1].args[0]]
        elif f.op == "+" and neg[0]:
            f.op, f.args = "-", [f.args[1], src[0].args[0]]
        elif f.op == "/" and src[1] is not None and src[1].op == "const" and src[1].value != 0:
            f.op = "/NZ"
        elif f.op == "^" and src[1] is not None and src[1].op == "const" and src[1].value in (1, 2, 3, 4):
            f.op = {1: "identity", 2: "sq", 3: "cube", 4: "fourth"}[int(src[1].value)]
            f.args = f.args[:1]
        if f.op == "identity":
            alias[d] = f.args[0]
            continue
        args = tuple(sorted(f.args)) if f.op in COMMUTATIVE else tuple(f.args)
        key = (f.op, args, f.value + 0.0 if f.op == "const" else None)
        alias[d] = known.setdefault(key, d)


def registers(table, outs, order, last):
    reg, free, count = {}, list(range(8)), 8
    for i, d in enumerate(order):
        dying = sorted({reg[a] for a in table[d].args if a >= 0 and last[a] == i and a in reg})
        free += dying
        if d in outs or table[d].op == "const":
            continue
        if free:
            reg[d] = free.pop(0)
        else:
            reg[d] = count
            count += 1
    return reg, count


def stack_passing(table, outs, order, last):
    """mode: 1 consumed from the stack only, 2 stored too. swap: 1 exchange, 2 duplicate. Chains end after 26 positions."""
    mode, swap, start = {}, {}, 0
    for i, d in enumerate(order):
        f = table[d]
        before = order[i - 1] if i else None
        fits = [a for a in f.args if a == before and a is not None and table[a].op != "const" and a not in outs]
        if len(f.args) not in (1, 2) or i - start >= 26 or not fits:
            start = i
            continue
        mode[before] = 1 if last[before] == i else 2
        if len(f.args) == 2:
            if f.args[0] == f.args[1]:
                swap[d] = 2
            elif f.args[1] == before and f.op not in COMMUTATIVE:
                swap[d] = 1
    return mode, swap


# ---- class files --------------------------------------------------------------------------------------------------------

def u2(n):
    return struct.pack(">H", n & 0xFFFF)


def u4(n):
    return struct.pack(">I", n & 0xFFFFFFFF)


class Pool:
    def __init__(self):
        self.index, self.count, self.bytes = {}, 0, b""

    def add(self, entry):
        if entry not in self.index:
            self.count += 1
            self.index[entry] = self.count
            self.bytes += entry
            if entry[0] == 6:
                self.count += 1
        return self.index[entry]

    def text(self, s):
        b = s.encode("latin-1")
        return self.add(b"\1" + u2(len(b)) + b)

    def integer(self, v):
        return self.add(b"\3" + u4(v))

    def double(self, v):
        return self.add(b"\6" + struct.pack(">d", v))

    def cls(self, name):
        return self.add(b"\7" + u2(self.text(name)))

    def string(self, s):
        return self.add(b"\x08" + u2(self.text(s)))

    def ref(self, tag, owner, name, kind):
        c = self.cls(owner)
        n = self.text(name)
        nt = self.add(b"\x0c" + u2(n) + u2(self.text(kind)))
        return self.add(bytes([tag]) + u2(c) + u2(nt))

    def method(self, owner, name, kind):
        return self.ref(10, owner, name, kind)


class Code:
    def __init__(self, pool, name, kind, access):
        self.pool, self.access = pool, access
        self.name, self.kind, self.attr = pool.text(name), pool.text(kind), pool.text("Code")
        self.b, self.stack, self.locals = bytearray(), 0, 0

    def op(self, *codes):
        at = len(self.b)
        self.b += bytes(codes)
        return at

    def iconst(self, v):
        if -1 <= v <= 5:
            return self.op(3 + v)
        if -128 <= v <= 127:
            return self.op(0x10, v & 255)
        return self.ldc(self.pool.integer(v))

    def ldc(self, i):
        return self.op(0x12, i) if i < 256 else self.op(0x13, i >> 8, i & 255)

    def dconst(self, v):
        if v == 0:
            return self.op(0x0E)
        if v == 1:
            return self.op(0x0F)
        i = self.pool.double(v)
        return self.op(0x14, i >> 8, i & 255)

    def slot(self, short, op, n):
        if n < 4:
            return self.op(short + n)
        if n < 256:
            return self.op(op, n)
        return self.op(0xC4, op, n >> 8, n & 255)

    def dload(self, n): return self.slot(0x26, 0x18, n)
    def aload(self, n): return self.slot(0x2A, 0x19, n)
    def iload(self, n): return self.slot(0x1A, 0x15, n)
    def lload(self, n): return self.slot(0x1E, 0x16, n)
    def dstore(self, n): return self.slot(0x47, 0x39, n)
    def astore(self, n): return self.slot(0x4B, 0x3A, n)
    def istore(self, n): return self.slot(0x3B, 0x36, n)
    def lstore(self, n): return self.slot(0x3F, 0x37, n)

    def ref(self, op, index):
        return self.op(op, index >> 8, index & 255)

    def jump(self, op):
        return self.op(op, 0, 0)

    def aim(self, at, to):
        self.b[at + 1:at + 3] = u2(to - at)

    def bytes(self):
        return (u2(self.access) + u2(self.name) + u2(self.kind) + u2(1) + u2(self.attr) + u4(len(self.b) + 12)
                + u2(self.stack) + u2(self.locals) + u4(len(self.b)) + bytes(self.b) + u2(0) + u2(0))


SWAP = (0x5E, 0x58)


class Writer:
    def __init__(self, class_name):
        self.name, self.pool, self.methods, self.fields = class_name, Pool(), [], []
        self.this, self.super = self.pool.cls(class_name), self.pool.cls("java/lang/Object")
        m = Code(self.pool, "<init>", "()V", 2)
        m.op(0x2A)
        m.ref(0xB7, self.pool.method("java/lang/Object", "<init>", "()V"))
        m.op(0xB1)
        m.stack = m.locals = 1
        self.methods.append(m)
        self.has_mod = False

    def math(self, m, name, kind="(D)D"):
        return m.ref(0xB8, self.pool.method("java/lang/Math", name, kind))

    def emit(self, m, op, scratch=3):
        plain = {"U-": [0x77], "+": [0x63], "-": [0x67], "*": [0x6B], "/": [0x6F], "/NZ": [0x6F], "sq": [0x5C, 0x6B],
                 "cube": [0x5C, 0x5C, 0x6B, 0x6B], "fourth": [0x5C, 0x6B, 0x5C, 0x6B], "conj": [], "identity": [],
                 "real": [], "U+": [], "sign": [0x0E, 0x97, 0x87], "imag": [0x58, 0x0E]}
        if op in plain:
            m.op(*plain[op])
        elif op in ("abs", "atan", "ceil", "cos", "exp", "floor", "sin", "tan"):
            self.math(m, op)
        elif op in ("atan2", "max", "min"):
            self.math(m, op, "(DD)D")
        elif op in ("acos", "asin"):
            m.op(0x5C)
            self.math(m, "abs")
            m.op(0x0F, 0x98)
            ok = m.jump(0x9E)
            m.iconst(-4)
            m.op(0xAC)
            m.aim(ok, self.math(m, op))
        elif op in ("sqrt", "log", "log10", "log2"):
            m.op(0x5C, 0x0E, 0x97)
            ok = m.jump(0x9C)
            m.iconst(-2 if op == "sqrt" else -1)
            m.op(0xAC)
            m.aim(ok, self.math(m, "sqrt" if op == "sqrt" else "log"))
            if op in ("log10", "log2"):
                m.dconst(1.0 / math.log(float(op[3:])))
                m.op(0x6B)
        elif op in ("cosh", "sinh"):
            m.op(*([0x5C, 0x77] if op == "cosh" else [0x77, 0x5C, 0x77]))
            self.math(m, "exp")
            m.op(*SWAP)
            self.math(m, "exp")
            m.op(0x63 if op == "cosh" else 0x67)
            m.dconst(0.5)
            m.op(0x6B)
        elif op == "tanh":
            m.op(0x5C)
            m.dconst(30.0)
            m.op(0x98)
            a = m.jump(0x9E)
            m.op(0x58, 0x0F)
            end1 = m.jump(0xA7)
            m.aim(a, m.op(0x5C))
            m.dconst(-30.0)
            m.op(0x97)
            b = m.jump(0x9C)
            m.op(0x58)
            m.dconst(-1.0)
            end2 = m.jump(0xA7)
            m.aim(b, m.op(0x5C))
            self.emit(m, "sinh")
            m.op(*SWAP)
            self.emit(m, "cosh")
            m.op(0x6F)
            end = m.op(0)
            m.aim(end1, end)
            m.aim(end2, end)
        elif op in ("sec", "csc", "cot", "sech", "csch", "coth"):
            self.emit(m, {"sec": "cos", "csc": "sin", "cot": "tan", "sech": "cosh", "csch": "sinh", "coth": "tanh"}[op])
            m.op(0x0F, *SWAP, 0x6F)
        elif op == "round":
            self.math(m, "round", "(D)J")
            m.op(0x8A)
        elif op == "fix":
            m.op(0x5C, 0x0E, 0x97)
            neg = m.jump(0x9B)
            self.math(m, "floor")
            end = m.jump(0xA7)
            m.aim(neg, self.math(m, "ceil"))
            m.aim(end, m.op(0))
        elif op in ("<", "<=", ">", ">=", "==", "!="):
            m.op(0x98 if op in ("<", "<=") else 0x97)
            false = m.jump({"==": 0x9A, "!=": 0x99, ">=": 0x9B, ">": 0x9E, "<=": 0x9D, "<": 0x9C}[op])
            m.op(0x0F)
            end = m.jump(0xA7)
            m.aim(false, m.op(0x0E))
            m.aim(end, m.op(0))
        elif op == "!":
            m.op(0x0E, 0x97, 0x59, 0x68, 0x04, 0x5F, 0x64, 0x87)
        elif op in ("and", "or"):
            m.op(0x0E, 0x97, 0x59, 0x68, 0x5B, 0x57, 0x0E, 0x97, 0x59, 0x68, 0x60)
            if op == "or":
                m.op(0x04, 0x60)
            m.op(0x04, 0x7A, 0x87)
        elif op == "if":
            m.dstore(scratch)
            m.op(*SWAP, 0x0E, 0x97)
            end = m.jump(0x9A)
            m.op(0x58)
            m.dload(scratch)
            m.aim(end, m.op(0))
        elif op == "^":
            m.op(*SWAP, 0x5C, 0x0E, 0x97)
            a = m.jump(0x9A)
            m.op(0x58, 0x0E, 0x97, 0x59, 0x68, 0x04, 0x5F, 0x64, 0x87)
            b = m.jump(0xA7)
            m.aim(a, m.op(*SWAP))
            self.math(m, "pow", "(DD)D")
            m.op(0)
            m.aim(b, m.op(0x5C))
            m.ref(0xB8, self.pool.method("java/lang/Double", "isNaN", "(D)Z"))
            m.istore(scratch)
            m.iload(scratch)
            c = m.jump(0x9E)
            m.iconst(-5)
            m.op(0xAC)
            m.aim(c, m.op(0))
        elif op == "mod":
            if not self.has_mod:
                self.has_mod = True
                self.mod()
            m.ref(0xB8, self.pool.method(self.name, "modImpl", "(DD)D"))
        else:
            raise ValueError(op)

    def mod(self):
        m = Code(self.pool, "modImpl", "(DD)D", 9)
        m.dload(2)
        m.op(0x0E, 0x97)
        j = m.jump(0x9A)
        m.dload(0)
        m.op(0xAF)
        m.aim(j, m.dload(0))
        m.dload(2)
        m.op(0x6F)
        m.dstore(4)
        m.dload(2)
        self.math(m, "floor")
        m.dload(2)
        m.op(0x97)
        j = m.jump(0x9A)
        m.dload(4)
        m.dload(4)
        self.math(m, "abs")
        m.dconst(5 * EPS)
        m.op(0x6B, 0x63)
        m.dstore(4)
        m.aim(j, m.dload(0))
        m.dload(4)
        self.math(m, "floor")
        m.dload(2)
        m.op(0x6B, 0x67, 0xAF)
        m.stack, m.locals = 10, 8
        self.methods.insert(1, m)

    def bytes(self):
        a, t = self.pool.text("SourceFile"), self.pool.text("Byte code generated by QUORIX.")
        return (u4(0xCAFEBABE) + u2(0) + u2(46) + u2(self.pool.count + 1) + self.pool.bytes + u2(0x21) + u2(self.this)
                + u2(self.super) + u2(0) + u2(len(self.fields)) + b"".join(self.fields) + u2(len(self.methods))
                + b"".join(m.bytes() for m in self.methods) + u2(1) + u2(a) + u4(2) + u2(t))


OWN_BYTES = {}


def own_bytes(op):
    """The length of an operation's code, measured on a class of its own."""
    if op not in OWN_BYTES:
        w = Writer("X")
        m = Code(w.pool, "f", "()V", 9)
        w.emit(m, op)
        OWN_BYTES[op] = len(m.b)
    return OWN_BYTES[op]


class Formula:
    def __init__(self, defs, inputs, outputs):
        self.inputs, self.nout = inputs, len(outputs)
        self.table, self.outs = prepare(defs, inputs, outputs)
        order, _, _ = sort(self.table, self.outs)
        eliminate(self.table, self.outs, order)
        self.order, self.pos, self.last = sort(self.table, self.outs)
        self.reg, self.nreg = registers(self.table, self.outs, self.order, self.last)
        self.mode, self.swap = stack_passing(self.table, self.outs, self.order, self.last)
        self.bound = [0] * (len(self.order) + 1)
        for i in reversed(range(len(self.order))):
            f = self.table[self.order[i]]
            own = 8 * len(f.args) + 2 + (3 if f.op == "const" else own_bytes(f.op)) + 8 + 10
            self.bound[i] = own + (self.bound[i + 1] if self.mode.get(self.order[i], 0) else 0)

    def write(self, class_name, method):
        w = Writer(class_name)
        self.state, self.live = {}, 0
        w.methods.append(self.work(w, 0, len(self.order), method, True))
        for name, n in (("NARGIN", len(self.inputs)), ("NARGOUT", self.nout)):
            value = w.pool.integer(n)
            w.fields.append(u2(0x19) + u2(w.pool.text(name)) + u2(w.pool.text("I")) + u2(1)
                            + u2(w.pool.text("ConstantValue")) + u4(2) + u2(value))
        return w.bytes()

    def work(self, w, first, last, name, entry):
        m = Code(w.pool, name, "([D[D)I" if entry else "([D[D[D)I", 9)
        m.op(0x2A)
        if self.inputs:
            m.op(0x59)
            m.iconst(len(self.inputs) - 1)
            m.op(0x31, 0x58)
        height, limit, i, stop = 1, 10, first, None
        while i < last and stop is None:
            d = self.order[i]
            f = self.table[d]
            pending = False
            for k, x in enumerate(f.args):
                if x in self.outs:
                    m.op(0x2B)
                    m.iconst(self.outs.index(x))
                    m.op(0x31)
                    height += 1
                elif x < 0:
                    if pending:
                        m.op(0x5D, 0x58)
                        height -= 1
                        pending = False
                    elif height > 2:
                        m.aload(0)
                    else:
                        m.op(*([0x59] if height == 1 else [0x5D, 0x58, 0x5B]))
                        if k == 0 and len(f.args) == 2 and f.args[1] < 0:
                            m.op(0x59)
                            height += 1
                            pending = True
                    m.iconst(-1 - x)
                    m.op(0x31)
                    height += 1
                elif self.table[x].op == "const":
                    m.dconst(self.table[x].value)
                    height += 1
                elif self.mode.get(x, 0) == 0 or (self.mode[x] == 2 and self.pos[x] < i - 1):
                    r = self.reg[x]
                    if self.state[r] == 1:
                        m.dload(5 + 2 * r)
                    else:
                        m.op(0x2C)
                        m.iconst(r)
                        m.op(0x31)
                    height += 1
            for x in f.args:
                if x >= 0 and self.last[x] == i and self.reg.get(x, 0) > 0:
                    if self.state.get(self.reg[x], 0) == 1:
                        self.live -= 1
                    self.state[self.reg[x]] = 0
            if self.swap.get(d) == 1:
                m.op(*SWAP)
            elif self.swap.get(d) == 2:
                m.op(0x5C)
                height += 1
            if f.op == "const":
                if d in self.outs:
                    m.dconst(f.value)
            else:
                w.emit(m, f.op)
            mode = self.mode.get(d, 0)
            height += (1 if mode else 0) - len(f.args)
            if mode != 1:
                if mode == 2:
                    m.op(0x5C)
                if d in self.outs:
                    m.op(0x2B)
                    m.iconst(self.outs.index(d))
                    m.op(*SWAP, 0x52)
                elif f.op != "const":
                    r = self.reg[d]
                    m.dstore(5 + 2 * r)
                    if self.state.get(r, 0) != 1:
                        self.live += 1
                    self.state[r] = 1
            limit = max(limit, height + 10 + len(f.args))
            size = len(m.b) + 10 * self.live
            i += 1
            if height == 1 and (size > 7200 or size + self.bound[i] + 50 > 8000):
                stop = i
        at = stop if stop is not None else last
        if not entry or at < last:
            if entry:
                m.iconst(self.nreg)
                m.op(0xBC, 7, 0x59)
                m.astore(2)
            else:
                m.op(0x2C)
            for r in sorted(self.state):
                if self.state[r] == 1:
                    m.op(0x59)
                    m.iconst(r)
                    m.dload(5 + 2 * r)
                    m.op(0x52)
                    self.state[r] = 2
            self.live = 0
            m.op(0x57)
        if at < last:
            middle = (at + last) // 2
            while middle < last and self.mode.get(self.order[middle - 1], 0):
                middle += 1
            for lo, hi, letter in ((at, middle, "A"), (middle, last, "B")):
                if lo < hi:
                    w.methods.append(self.work(w, lo, hi, name + letter, False))
                    m.op(0x2A, 0x2B, 0x2C)
                    m.ref(0xB8, w.pool.method(w.name, name + letter, "([D[D[D)I"))
                    m.op(0x59)
                    j = m.jump(0x99)
                    m.op(0xAC)
                    m.aim(j, m.op(0x57))
        m.op(0x03, 0xAC)
        m.stack, m.locals = limit, 5 + 2 * self.nreg
        return m


# ---- the lists ----------------------------------------------------------------------------------------------------------

def lists():
    """Name, definitions, inputs, outputs."""
    every = ["abs", "acos", "asin", "atan", "ceil", "conj", "cos", "cosh", "cot", "coth", "csc", "csch", "exp", "fix", "floor",
             "imag", "log", "log10", "log2", "!", "real", "round", "sec", "sech", "sign", "sin", "sinh", "sqrt", "tan", "tanh",
             "U-", "U+", "identity"]
    pairs = ["and", "atan2", "/", "==", ">=", ">", "<=", "<", "max", "min", "-", "mod", "!=", "or", "+", "^", "*"]
    yield "one", ["y=sin(a)"], ["a"], ["y"]
    yield "constant", ["y=2.5", "z=-0", "w=1"], [], ["y", "z", "w"]
    yield "inputs", ["y=-(a,b)", "z=*(b,b)", "w=/(a,k)", "k=3"], ["a", "b"], ["y", "z", "w", "a", "y"]
    yield "fin", ["s=U-(u)", "u=^(x,two)", "two=2", "e=exp(s)", "d=-(T,twenty)", "twenty=20", "q=*(d,e)"], ["x", "T"], ["q"]
    yield "unary", [f"v{i}={f}(a)" for i, f in enumerate(every)], ["a"], [f"v{i}" for i in range(len(every))]
    yield "binary", [f"v{i}={f}(a,b)" for i, f in enumerate(pairs)], ["a", "b"], [f"v{i}" for i in range(len(pairs))]
    yield "choice", ["c=<(a,b)", "y=if(c,s,t)", "s=sin(a)", "t=^(b,k)", "k=2.5"], ["a", "b"], ["y"]
    yield "shared", ["s=sin(a)", "t=*(s,s)", "u=+(t,s)", "v=-(b,u)", "y=^(v,four)", "four=4"], ["a", "b"], ["y", "u"]
    chain = ["v0=sin(a)"]
    for i in range(1, 1500):
        f = ["coth(v%d)", "-(a,v%d)", "cos(v%d)", "mod(b,v%d)", "tanh(v%d)"][i % 5]
        chain.append(f"v{i}=" + f % (i - 1))
    yield "chain", chain, ["a", "b"], ["v1499"]
    yield "coths", ["v0=coth(a)"] + [f"v{i}=coth(v{i - 1})" for i in range(1, 1000)], ["a"], ["v999"]
    wide = []
    for i in range(400):
        wide += [f"k{i}={i}.5", f"s{i}=*(a,k{i})", f"t{i}=sin(s{i})"]
    wide += ["p0=+(t0,t399)"] + [f"p{i}=*(p{i - 1},t{399 - i})" for i in range(1, 399)]
    yield "wide", wide, ["a"], ["p398"]
    yield "many", [f"y{i}=+(x{i},x{(i * 7) % 200})" for i in range(200)], [f"x{i}" for i in range(200)], [f"y{i}" for i in range(200)]


def main():
    if sys.argv[1:] == ["--formulas"]:
        for name, defs, inputs, outputs in lists():
            print(name)
            print("in " + " ".join(inputs))
            for d in defs:
                print("def " + d)
            print("out " + " ".join(outputs) + "\n")
        return
    wanted = sys.argv[1:]
    for name, defs, inputs, outputs in lists():
        if not wanted or name in wanted:
            print(name, Formula(defs, inputs, outputs).write("p/" + name, "eval").hex())


main()
