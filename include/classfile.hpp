// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "exprcomp.hpp"

#include <cstdint>
#include <iosfwd>

// A small assembler for Java class files of major version 46: what generated code needs, and no more. All values of
// several bytes are big-endian. Source: The Java Virtual Machine Specification, Java SE 8 edition, chapters 4 and 6.
// A bad index, operand number, slot or jump raises "QUORIX_assertion_failure" (exprcomp).

/// One instruction with at most two bytes of operands.
class QX_API ExprComp::Instr
{
public:
    Instr(std::uint8_t op, std::uint8_t count, std::uint8_t first = 0, std::uint8_t second = 0)
        : opCode(op), nArgs(count), arg0(first), arg1(second)
    {
    }

    std::uint8_t getOpCode() const { return opCode; }
    int getNArgs() const { return nArgs; }
    /// Bytes in the code.
    int getSize() const { return nArgs + 1; }
    std::uint8_t getArg(int i) const;
    void setArg(int i, std::uint8_t value);
    /// if<cond>, if_icmp<cond> and goto, the jumps with a 16-bit offset that are used.
    static bool isJumpOpcode(int op) { return (op >= 0x99 && op <= 0xA4) || op == 0xA7; }

private:
    std::uint8_t opCode, nArgs, arg0, arg1;
};

/// Where bytes go.
class QX_API ExprComp::BytecodeStream
{
public:
    virtual ~BytecodeStream();
    virtual void write(unsigned char byte) = 0;
    virtual void write(const std::vector<unsigned char>& bytes) = 0;

    friend BytecodeStream& operator<<(BytecodeStream& stream, std::uint8_t value)
    {
        stream.write(value);
        return stream;
    }
    friend BytecodeStream& operator<<(BytecodeStream& stream, std::uint16_t value)
    {
        return stream << static_cast<std::uint8_t>(value >> 8) << static_cast<std::uint8_t>(value);
    }
    friend BytecodeStream& operator<<(BytecodeStream& stream, std::uint32_t value)
    {
        return stream << static_cast<std::uint16_t>(value >> 16) << static_cast<std::uint16_t>(value);
    }
};

/// Appends to a vector, which is lent.
class QX_API ExprComp::MemoryBytecodeStream : public BytecodeStream
{
public:
    explicit MemoryBytecodeStream(std::vector<unsigned char>& out) : out_(out) {}
    void write(unsigned char byte) override;
    void write(const std::vector<unsigned char>& bytes) override;

private:
    std::vector<unsigned char>& out_;
};

/// Writes to an output stream, which is lent; its state tells of failures.
class QX_API ExprComp::FileBytecodeStream : public BytecodeStream
{
public:
    explicit FileBytecodeStream(std::ostream& out) : out_(out) {}
    void write(unsigned char byte) override;
    void write(const std::vector<unsigned char>& bytes) override;

private:
    std::ostream& out_;
};

/// The constants of a class, each once: entries with equal bytes share an index, so that 0.0 and -0.0 stay apart, as do
/// NaN of different bits.
///
/// Indices count from 1 in the order of entry; a double takes two. What an entry refers to is entered before it.
/// Fails: "Compilation failed: Too many different constants." for an entry not seen before when the pool is full (65536
/// indices; a class with more than 65534 cannot be written), and for text of more than 65535 bytes.
class QX_API ExprComp::ConstPool
{
public:
    explicit ConstPool(QxStringPool& texts) : texts_(texts) {}

    /// The bytes as they stand, without conversion.
    int getUtf8(const std::string& text);
    int getInteger(int value);
    int getDouble(double value);
    int getClass(const std::string& name);
    int getString(const std::string& text);
    int getField(const std::string& className, const std::string& name, const std::string& descriptor);
    int getMethod(const std::string& className, const std::string& name, const std::string& descriptor);
    int getNameType(const std::string& name, const std::string& descriptor);
    /// The index of a serialised entry: tag and body.
    int getIndex(const std::vector<unsigned char>& entry);

    /// The highest index in use.
    int getCount() const { return count_; }
    QxStringPool& getStringPool() const { return texts_; }
    void writeBytecode(BytecodeStream& stream) const;

private:
    struct EntryHash
    {
        unsigned operator()(const std::vector<unsigned char>& entry) const;
    };
    using Entry = std::vector<unsigned char>;

    static void add1(Entry& entry, unsigned value) { entry.push_back(static_cast<unsigned char>(value)); }
    static void add2(Entry& entry, unsigned value);
    int getPair(unsigned tag, int first, int second);

    QxStringPool& texts_;
    QxHashMap<int, Entry, EntryHash, QxHashComp> indices_;
    int count_ = 0;
    Entry bytes_;
};

/// A method and its code. Jump targets are indices of instructions that exist; a nop serves as a landing place.
class QX_API ExprComp::Method
{
public:
    Method(ConstPool& pool, const std::string& name, const std::string& descriptor, std::uint16_t access);

    /// Append an instruction and give its index.
    int add(int op);
    int addArg1(int op, int arg);
    int addArg2(int op, int arg0, int arg1);
    int addArg2(int op, std::uint16_t arg);

    /// Push a number: a short form, bipush, or a constant of the pool. A zero loses its sign.
    void addIconst(int value);
    void addDconst(double value);
    void addLdc(int index);

    /// Loads and stores of locals: one byte for the first four slots, wide from slot 256 on.
    void addLoad(int shortBase, int op, int slot);
    void addStore(int shortBase, int op, int slot) { addLoad(shortBase, op, slot); }
    void addIload(int slot) { addLoad(0x1A, 0x15, slot); }
    void addLload(int slot) { addLoad(0x1E, 0x16, slot); }
    void addDload(int slot) { addLoad(0x26, 0x18, slot); }
    void addAload(int slot) { addLoad(0x2A, 0x19, slot); }
    void addIstore(int slot) { addStore(0x3B, 0x36, slot); }
    void addLstore(int slot) { addStore(0x3F, 0x37, slot); }
    void addDstore(int slot) { addStore(0x47, 0x39, slot); }
    void addAstore(int slot) { addStore(0x4B, 0x3A, slot); }

    /// A jump whose target is set later.
    int addJumpInstr(int op);
    /// Aims the jump `from` at the instruction `to`; at most 32767 bytes apart.
    void setJumpTarget(int from, int to);

    void setLimits(int maxStack, int maxLocals);
    int getMaxStack() const { return maxStack_; }
    int getMaxLocals() const { return maxLocals_; }
    int getNameIndex() const { return nameIndex_; }
    /// Bytes of code so far.
    int getCodeLength() const { return codeLength_; }
    /// Number of instructions, which is the index of the next one.
    int getInstrCount() const { return static_cast<int>(instrs_.size()); }
    const Instr& getInstr(int i) const;
    /// Byte offset of an instruction.
    int getOffset(int i) const;
    ConstPool& getPool() const { return pool_; }
    void writeBytecode(BytecodeStream& stream) const;

private:
    int append(const Instr& instr);
    void checkIndex(int i) const;

    ConstPool& pool_;
    int nameIndex_, descIndex_, codeAttrIndex_;
    int maxStack_ = 0, maxLocals_ = 0;
    std::uint16_t access_;
    int codeLength_ = 0;
    std::vector<Instr> instrs_;
    std::vector<int> offsets_;
};

/// A field; with a value if valueIndex, an index of the pool, is not negative.
class QX_API ExprComp::Field
{
public:
    Field(ConstPool& pool, const std::string& name, const std::string& descriptor, std::uint16_t access, int valueIndex);
    void writeBytecode(BytecodeStream& stream) const;

private:
    int nameIndex_, descIndex_, constAttrIndex_;
    std::uint16_t access_;
    int valueIndex_;
};

/// A class that is only a holder of static methods: its first method is a private constructor.
class QX_API ExprComp::ClassFile
{
public:
    /// Names as they stand in the file, with slashes between packages.
    ClassFile(QxStringPool& texts, const std::string& className, const std::string& superName);
    ~ClassFile();
    ClassFile(const ClassFile&) = delete;
    ClassFile& operator=(const ClassFile&) = delete;

    void addMethod(const boost::shared_ptr<Method>& method);
    /// The same, right behind the constructor.
    void addHelper(const boost::shared_ptr<Method>& method);
    void addField(const boost::shared_ptr<Field>& field);
    /// The whole file. Twice gives the same bytes.
    void write(BytecodeStream& stream);

    const std::string& getName() const { return name_; }
    ConstPool& getPool() { return pool_; }
    FunctionTable& getFunctions() { return *functions_; }
    const std::vector<boost::shared_ptr<Method>>& getMethods() const { return methods_; }

private:
    std::string name_;
    ConstPool pool_;
    boost::shared_ptr<FunctionTable> functions_;
    int thisIndex_, superIndex_;
    std::vector<boost::shared_ptr<Field>> fields_;
    std::vector<boost::shared_ptr<Method>> methods_;
};

/// The code of each kind of definition, on operands that stand on the operand stack.
class QX_API ExprComp::FunctionTable
{
public:
    explicit FunctionTable(ClassFile& classFile) : class_(classFile) {}

    /// Emits the operation; the result is left in place of the operands. scratch: the first of two free locals.
    void generateCall(int kind, int nArgs, Method& method, int scratch);
    static std::string getName(int kind) { return ExprComp::nameOf(kind); }

private:
    class Emitter;

    /// Pool index of the library method that implements a kind.
    int methodOf(int kind, int nArgs, const char* className, const char* name, const char* descriptor);
    int modImpl();

    ClassFile& class_;
    QxHashMap<int, std::pair<int, int>> methods_; ///< pool index of the method that implements (kind, arguments)
};
