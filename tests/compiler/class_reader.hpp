// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

/// A class file taken apart, and an independent check of its code: what a virtual machine's verifier by inference asks for,
/// as far as generated code goes. Written from the format's definition, not from the library.
namespace qxtest {

struct ClassReader
{
    struct Constant
    {
        int tag = 0;
        std::string text;          // tag 1
        std::uint64_t bits = 0;    // tags 3, 6
        int first = 0, second = 0; // references
    };
    struct Method
    {
        int access = 0;
        std::string name, descriptor;
        int maxStack = 0, maxLocals = 0;
        std::vector<unsigned char> code;
    };
    struct Field
    {
        int access = 0;
        std::string name, descriptor;
        long value = 0;
        bool hasValue = false;
    };

    explicit ClassReader(const std::vector<unsigned char>& bytes) : in_(bytes)
    {
        require(u4() == 0xCAFEBABE, "magic");
        minor = u2();
        major = u2();
        readPool();
        access = u2();
        name = className(u2());
        superName = className(u2());
        require(u2() == 0, "interfaces");
        readFields();
        readMethods();
        const int attributes = u2();
        for (int i = 0; i < attributes; ++i) {
            const std::string attribute = text(u2());
            require(attribute == "SourceFile" && u4() == 2, "attribute of the class");
            sourceFile = text(u2());
        }
        require(at_ == in_.size(), "bytes behind the class");
    }

    const Method& method(const std::string& wanted) const
    {
        for (const Method& m : methods)
            if (m.name == wanted)
                return m;
        throw std::runtime_error("no method " + wanted);
    }
    int longestMethod() const
    {
        std::size_t longest = 0;
        for (const Method& m : methods)
            longest = m.code.size() > longest ? m.code.size() : longest;
        return static_cast<int>(longest);
    }
    const std::string& text(int index) const
    {
        require(constant(index).tag == 1, "a text constant");
        return constant(index).text;
    }
    std::string className(int index) const
    {
        require(constant(index).tag == 7, "a class constant");
        return text(constant(index).first);
    }
    const Constant& constant(int index) const
    {
        require(index > 0 && index < static_cast<int>(pool.size()) && pool[static_cast<std::size_t>(index)].tag != 0,
                "index of a constant");
        return pool[static_cast<std::size_t>(index)];
    }
    /// The descriptor of a field or method reference.
    const std::string& descriptorOf(int reference) const { return text(constant(constant(reference).second).second); }
    const std::string& nameOf(int reference) const { return text(constant(constant(reference).second).first); }

    static void require(bool ok, const std::string& what)
    {
        if (!ok)
            throw std::runtime_error("bad class file: " + what);
    }

    int minor = 0, major = 0, access = 0;
    std::string name, superName, sourceFile;
    std::vector<Constant> pool;
    std::vector<Field> fields;
    std::vector<Method> methods;

private:
    unsigned u1()
    {
        require(at_ < in_.size(), "its end");
        return in_[at_++];
    }
    int u2()
    {
        const unsigned high = u1();
        return static_cast<int>(high << 8 | u1());
    }
    std::uint32_t u4()
    {
        const auto high = static_cast<std::uint32_t>(u2());
        return high << 16 | static_cast<std::uint32_t>(u2());
    }

    void readPool()
    {
        pool.resize(static_cast<std::size_t>(u2()));
        for (std::size_t i = 1; i < pool.size(); ++i) {
            Constant& c = pool[i];
            c.tag = static_cast<int>(u1());
            switch (c.tag) {
            case 1: {
                const int length = u2();
                for (int k = 0; k < length; ++k)
                    c.text += static_cast<char>(u1());
                break;
            }
            case 3: c.bits = u4(); break;
            case 6:
                c.bits = static_cast<std::uint64_t>(u4()) << 32;
                c.bits |= u4();
                ++i; // takes two
                require(i < pool.size(), "a double at the end of the pool");
                break;
            case 7: case 8: c.first = u2(); break;
            case 9: case 10: case 12:
                c.first = u2();
                c.second = u2();
                break;
            default: require(false, "tag " + std::to_string(c.tag));
            }
        }
    }

    void readFields()
    {
        const int count = u2();
        for (int i = 0; i < count; ++i) {
            Field f;
            f.access = u2();
            f.name = text(u2());
            f.descriptor = text(u2());
            if (u2() == 1) {
                require(text(u2()) == "ConstantValue" && u4() == 2, "attribute of a field");
                f.value = static_cast<std::int32_t>(constant(u2()).bits);
                f.hasValue = true;
            }
            fields.push_back(f);
        }
    }

    void readMethods()
    {
        const int count = u2();
        for (int i = 0; i < count; ++i) {
            Method m;
            m.access = u2();
            m.name = text(u2());
            m.descriptor = text(u2());
            require(u2() == 1 && text(u2()) == "Code", "attribute of a method");
            const std::uint32_t length = u4();
            m.maxStack = u2();
            m.maxLocals = u2();
            const std::uint32_t size = u4();
            require(length == size + 12 && size > 0 && size < 65536, "length of code");
            for (std::uint32_t k = 0; k < size; ++k)
                m.code.push_back(static_cast<unsigned char>(u1()));
            require(u2() == 0 && u2() == 0, "exceptions or attributes of code");
            methods.push_back(m);
        }
    }

    const std::vector<unsigned char>& in_;
    std::size_t at_ = 0;
};

/// Follows the operand stack and the locals through every path of a method: types at each instruction, heights, limits,
/// targets of jumps. Throws std::runtime_error on the first fault. The registers that a piece finds in the spill array are
/// followed too: stored[r] says whether somebody wrote r before it is read.
class CodeChecker
{
public:
    explicit CodeChecker(const ClassReader& file) : file_(file) {}

    void checkAll()
    {
        for (const ClassReader::Method& m : file_.methods)
            check(m);
    }

    void check(const ClassReader::Method& method)
    {
        code_ = &method.code;
        what_ = method.name;
        maxStack_ = method.maxStack;
        maxLocals_ = method.maxLocals;
        descriptor_ = method.descriptor;
        states_.clear();
        State start;
        start.locals.assign(static_cast<std::size_t>(maxLocals_), '.');
        std::size_t slot = 0;
        if ((method.access & 8) == 0)
            start.locals.at(slot++) = 'L';
        for (const char c : argumentsOf(descriptor_)) {
            start.locals.at(slot++) = c;
            if (c == 'D' || c == 'J')
                start.locals.at(slot++) = ':';
        }
        std::vector<std::size_t> todo;
        merge(0, start, todo);
        while (!todo.empty()) {
            const std::size_t pc = todo.back();
            todo.pop_back();
            step(pc, states_.at(pc), todo);
        }
    }

private:
    struct State
    {
        std::string stack, locals; // I int, D double, J long, A double[], S String[], L other reference; "." unusable
        bool operator==(const State&) const = default;
    };

    [[noreturn]] void fail(std::size_t pc, const std::string& text) const
    {
        throw std::runtime_error(what_ + " at " + std::to_string(pc) + ": " + text);
    }

    static std::string argumentsOf(const std::string& descriptor)
    {
        std::string types;
        for (std::size_t i = 1; descriptor.at(i) != ')'; ++i)
            types += typeAt(descriptor, i);
        return types;
    }
    static char typeAt(const std::string& descriptor, std::size_t& i)
    {
        switch (descriptor.at(i)) {
        case '[':
            ++i;
            if (descriptor.at(i) == 'D')
                return 'A';
            i = descriptor.find(';', i);
            return 'S';
        case 'L': i = descriptor.find(';', i); return 'L';
        case 'Z': return 'I';
        default: return descriptor.at(i);
        }
    }

    void merge(std::size_t pc, const State& state, std::vector<std::size_t>& todo)
    {
        if (pc >= code_->size())
            fail(pc, "runs over the end");
        const auto [found, isNew] = states_.emplace(pc, state);
        if (isNew) {
            todo.push_back(pc);
            return;
        }
        State& known = found->second;
        if (known.stack != state.stack)
            fail(pc, "stacks " + known.stack + " and " + state.stack + " meet");
        bool changed = false;
        for (std::size_t i = 0; i < known.locals.size(); ++i)
            if (known.locals[i] != state.locals[i] && known.locals[i] != '.') {
                known.locals[i] = '.';
                changed = true;
            }
        if (changed)
            todo.push_back(pc);
    }

    void step(std::size_t pc, State s, std::vector<std::size_t>& todo)
    {
        const auto byte = [&](std::size_t i) -> int {
            if (pc + i >= code_->size())
                fail(pc, "instruction cut off");
            return (*code_)[pc + i];
        };
        const auto pop = [&](char type) {
            if (s.stack.empty() || s.stack.back() != type)
                fail(pc, std::string("wants ") + type + " on " + s.stack);
            s.stack.pop_back();
        };
        const auto popAny = [&]() -> char {
            if (s.stack.empty())
                fail(pc, "empty stack");
            const char top = s.stack.back();
            s.stack.pop_back();
            return top;
        };
        const auto isWide = [](char c) { return c == 'D' || c == 'J'; };
        const auto popNarrow = [&]() -> char {
            const char c = popAny();
            if (isWide(c))
                fail(pc, "splits a double");
            return c;
        };
        const auto load = [&](char type, int slot) {
            if (slot + (isWide(type) ? 1 : 0) >= maxLocals_ || s.locals[static_cast<std::size_t>(slot)] != type)
                fail(pc, std::string("local ") + std::to_string(slot) + " is no " + type);
            s.stack += type;
        };
        const auto store = [&](char type, int slot) {
            const bool any = type == 'A';
            const char kept = any ? popNarrow() : type;
            if (!any)
                pop(type);
            if (slot + (isWide(kept) ? 1 : 0) >= maxLocals_)
                fail(pc, "local out of range");
            const auto at = static_cast<std::size_t>(slot);
            if (at > 0 && s.locals[at] == ':')
                s.locals[at - 1] = '.';
            s.locals[at] = kept;
            if (isWide(kept))
                s.locals[at + 1] = ':';
        };
        const auto loadReference = [&](int slot) {
            if (slot >= maxLocals_)
                fail(pc, "local out of range");
            const char c = s.locals[static_cast<std::size_t>(slot)];
            if (c != 'A' && c != 'S' && c != 'L')
                fail(pc, "local is no reference");
            s.stack += c;
        };

        int op = byte(0);
        std::size_t size = 1;
        int operand = -1; // slot of a load or store
        if (op == 0xC4) {
            op = byte(1);
            operand = byte(2) << 8 | byte(3);
            size = 4;
        } else if ((op >= 0x15 && op <= 0x19) || (op >= 0x36 && op <= 0x3A)) {
            operand = byte(1);
            size = 2;
        } else if (op >= 0x1A && op <= 0x2D) {
            operand = (op - 0x1A) % 4;
            op = 0x15 + (op - 0x1A) / 4;
        } else if (op >= 0x3B && op <= 0x4E) {
            operand = (op - 0x3B) % 4;
            op = 0x36 + (op - 0x3B) / 4;
        }
        bool falls = true;
        int target = 0;

        switch (op) {
        case 0x00: break;
        case 0x02: case 0x03: case 0x04: case 0x05: case 0x06: case 0x07: case 0x08: s.stack += 'I'; break;
        case 0x0E: case 0x0F: s.stack += 'D'; break;
        case 0x10: byte(1); size = 2; s.stack += 'I'; break;
        case 0x12: case 0x13: {
            const int index = op == 0x12 ? byte(1) : byte(1) << 8 | byte(2);
            size = op == 0x12 ? 2 : 3;
            const int tag = file_.constant(index).tag;
            if (tag != 3 && tag != 8)
                fail(pc, "ldc of another constant");
            s.stack += tag == 3 ? 'I' : 'L';
            break;
        }
        case 0x14:
            if (file_.constant(byte(1) << 8 | byte(2)).tag != 6)
                fail(pc, "ldc2_w of another constant");
            size = 3;
            s.stack += 'D';
            break;
        case 0x15: load('I', operand); break;
        case 0x16: load('J', operand); break;
        case 0x18: load('D', operand); break;
        case 0x19: loadReference(operand); break;
        case 0x36: store('I', operand); break;
        case 0x37: store('J', operand); break;
        case 0x39: store('D', operand); break;
        case 0x3A: store('A', operand); break;
        case 0x31: pop('I'); pop('A'); s.stack += 'D'; break;
        case 0x32: pop('I'); pop('S'); s.stack += 'L'; break;
        case 0x52: pop('D'); pop('I'); pop('A'); break;
        case 0x57: popNarrow(); break;
        case 0x58: if (!isWide(popAny())) popNarrow(); break;
        case 0x59: { const char c = popNarrow(); s.stack += {c, c}; break; }
        case 0x5B: { // dup_x2
            const char a = popNarrow(), b = popAny();
            if (isWide(b))
                s.stack += {a, b, a};
            else {
                const char c = popNarrow();
                s.stack += {a, c, b, a};
            }
            break;
        }
        case 0x5C: { // dup2
            const char a = popAny();
            if (isWide(a))
                s.stack += {a, a};
            else {
                const char b = popNarrow();
                s.stack += {b, a, b, a};
            }
            break;
        }
        case 0x5D: { // dup2_x1
            const char a = popAny();
            if (isWide(a)) {
                const char b = popNarrow();
                s.stack += {a, b, a};
            } else {
                const char b = popNarrow(), c = popNarrow();
                s.stack += {b, a, c, b, a};
            }
            break;
        }
        case 0x5E: { // dup2_x2
            const char a = popAny();
            std::string upper(1, a);
            if (!isWide(a))
                upper.insert(upper.begin(), popNarrow());
            const char c = popAny();
            std::string lower(1, c);
            if (!isWide(c))
                lower.insert(lower.begin(), popNarrow());
            s.stack += upper + lower + upper;
            break;
        }
        case 0x5F: { const char a = popNarrow(), b = popNarrow(); s.stack += {a, b}; break; }
        case 0x60: case 0x64: case 0x68: case 0x7A: pop('I'); pop('I'); s.stack += 'I'; break;
        case 0x63: case 0x67: case 0x6B: case 0x6F: pop('D'); pop('D'); s.stack += 'D'; break;
        case 0x65: pop('J'); pop('J'); s.stack += 'J'; break;
        case 0x77: pop('D'); s.stack += 'D'; break;
        case 0x84: load('I', byte(1)); pop('I'); byte(2); size = 3; break;
        case 0x87: pop('I'); s.stack += 'D'; break;
        case 0x8A: pop('J'); s.stack += 'D'; break;
        case 0x97: case 0x98: pop('D'); pop('D'); s.stack += 'I'; break;
        case 0x99: case 0x9A: case 0x9B: case 0x9C: case 0x9D: case 0x9E:
            pop('I');
            target = static_cast<std::int16_t>(byte(1) << 8 | byte(2));
            size = 3;
            break;
        case 0xA0: case 0xA2: case 0xA4:
            pop('I');
            pop('I');
            target = static_cast<std::int16_t>(byte(1) << 8 | byte(2));
            size = 3;
            break;
        case 0xA7:
            target = static_cast<std::int16_t>(byte(1) << 8 | byte(2));
            size = 3;
            falls = false;
            break;
        case 0xAC: pop('I'); requireResult(pc, "I"); falls = false; break;
        case 0xAF: pop('D'); requireResult(pc, "D"); falls = false; break;
        case 0xB1: requireResult(pc, "V"); falls = false; break;
        case 0xB2: s.stack += 'L'; size = 3; break;
        case 0xB6: case 0xB7: case 0xB8: {
            const std::string& d = file_.descriptorOf(byte(1) << 8 | byte(2));
            const std::string arguments = argumentsOf(d);
            for (auto c = arguments.rbegin(); c != arguments.rend(); ++c)
                pop(*c);
            if (op != 0xB8)
                pop('L');
            std::size_t i = d.find(')') + 1;
            if (d[i] != 'V')
                s.stack += typeAt(d, i);
            size = 3;
            break;
        }
        case 0xBC:
            if (byte(1) != 7)
                fail(pc, "array of something else");
            pop('I');
            s.stack += 'A';
            size = 2;
            break;
        case 0xBE: {
            const char c = popNarrow();
            if (c != 'A' && c != 'S')
                fail(pc, "length of no array");
            s.stack += 'I';
            break;
        }
        default: fail(pc, "unknown instruction " + std::to_string(op));
        }

        int words = 0;
        for (const char c : s.stack)
            words += isWide(c) ? 2 : 1;
        if (words > maxStack_)
            fail(pc, "stack beyond its limit");
        if (target != 0)
            merge(static_cast<std::size_t>(static_cast<long>(pc) + target), s, todo);
        if (falls)
            merge(pc + size, s, todo);
    }

    void requireResult(std::size_t pc, const std::string& type) const
    {
        if (descriptor_.substr(descriptor_.find(')') + 1) != type)
            fail(pc, "returns another type than " + descriptor_);
    }

    const ClassReader& file_;
    const std::vector<unsigned char>* code_ = nullptr;
    std::string what_, descriptor_;
    int maxStack_ = 0, maxLocals_ = 0;
    std::map<std::size_t, State> states_;
};

} // namespace qxtest
