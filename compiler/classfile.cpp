// SPDX-License-Identifier: LicenseRef-qxkernel
#include "classfile.hpp"

#include "compiler/opcodes_detail.hpp"
#include "qxexception.hpp"

#include <bit>
#include <boost/make_shared.hpp>
#include <ostream>

namespace op = qxcompiler::op;

namespace {

[[noreturn]] void broken()
{
    QX_RAISE("exprcomp", "QUORIX_assertion_failure");
}

[[noreturn]] void poolIsFull()
{
    QX_RAISE("exprcomp", "Compilation failed: Too many different constants.");
}

std::uint8_t byteOf(int value)
{
    return static_cast<std::uint8_t>(value);
}

std::uint16_t shortOf(int value)
{
    return static_cast<std::uint16_t>(value);
}

std::uint32_t wordOf(std::size_t value)
{
    return static_cast<std::uint32_t>(value);
}

} // namespace

// Instructions -------------------------------------------------------------------------------------------------------

std::uint8_t ExprComp::Instr::getArg(int i) const
{
    if (i < 0 || i >= nArgs)
        broken();
    return i == 0 ? arg0 : arg1;
}

void ExprComp::Instr::setArg(int i, std::uint8_t value)
{
    if (i < 0 || i >= nArgs)
        broken();
    (i == 0 ? arg0 : arg1) = value;
}

// Streams ------------------------------------------------------------------------------------------------------------

ExprComp::BytecodeStream::~BytecodeStream() = default;

void ExprComp::MemoryBytecodeStream::write(unsigned char byte)
{
    out_.push_back(byte);
}

void ExprComp::MemoryBytecodeStream::write(const std::vector<unsigned char>& bytes)
{
    out_.insert(out_.end(), bytes.begin(), bytes.end());
}

void ExprComp::FileBytecodeStream::write(unsigned char byte)
{
    out_.put(static_cast<char>(byte));
}

void ExprComp::FileBytecodeStream::write(const std::vector<unsigned char>& bytes)
{
    out_.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// Constants ----------------------------------------------------------------------------------------------------------

namespace {

enum Tag : unsigned { Utf8 = 1, Integer = 3, Double = 6, Class = 7, String = 8, FieldRef = 9, MethodRef = 10, NameType = 12 };

constexpr int mostIndices = 65536, mostWritable = 65534;

} // namespace

unsigned ExprComp::ConstPool::EntryHash::operator()(const Entry& entry) const
{
    const QxHashFun hash;
    std::uint32_t h = 1;
    for (const unsigned char byte : entry)
        h = h * 31u + hash(byte);
    return static_cast<std::int32_t>(h) < 0 ? 0u - h : h;
}

void ExprComp::ConstPool::add2(Entry& entry, unsigned value)
{
    add1(entry, value >> 8);
    add1(entry, value);
}

int ExprComp::ConstPool::getUtf8(const std::string& text)
{
    if (text.size() > 65535)
        poolIsFull();
    Entry entry;
    entry.reserve(text.size() + 3);
    add1(entry, Utf8);
    add2(entry, wordOf(text.size()));
    entry.insert(entry.end(), text.begin(), text.end());
    return getIndex(entry);
}

int ExprComp::ConstPool::getInteger(int value)
{
    Entry entry;
    add1(entry, Integer);
    add2(entry, static_cast<unsigned>(value) >> 16);
    add2(entry, static_cast<unsigned>(value));
    return getIndex(entry);
}

int ExprComp::ConstPool::getDouble(double value)
{
    const auto bits = std::bit_cast<std::uint64_t>(value);
    Entry entry;
    entry.reserve(9);
    add1(entry, Double);
    for (int shift = 56; shift >= 0; shift -= 8)
        add1(entry, static_cast<unsigned>(bits >> shift));
    return getIndex(entry);
}

int ExprComp::ConstPool::getClass(const std::string& name)
{
    Entry entry;
    const int text = getUtf8(name);
    add1(entry, Class);
    add2(entry, static_cast<unsigned>(text));
    return getIndex(entry);
}

int ExprComp::ConstPool::getString(const std::string& text)
{
    Entry entry;
    const int content = getUtf8(text);
    add1(entry, String);
    add2(entry, static_cast<unsigned>(content));
    return getIndex(entry);
}

int ExprComp::ConstPool::getPair(unsigned tag, int first, int second)
{
    Entry entry;
    add1(entry, tag);
    add2(entry, static_cast<unsigned>(first));
    add2(entry, static_cast<unsigned>(second));
    return getIndex(entry);
}

int ExprComp::ConstPool::getField(const std::string& className, const std::string& name, const std::string& descriptor)
{
    const int owner = getClass(className);
    return getPair(FieldRef, owner, getNameType(name, descriptor));
}

int ExprComp::ConstPool::getMethod(const std::string& className, const std::string& name, const std::string& descriptor)
{
    const int owner = getClass(className);
    return getPair(MethodRef, owner, getNameType(name, descriptor));
}

int ExprComp::ConstPool::getNameType(const std::string& name, const std::string& descriptor)
{
    const int text = getUtf8(name);
    return getPair(NameType, text, getUtf8(descriptor));
}

int ExprComp::ConstPool::getIndex(const Entry& entry)
{
    if (entry.empty())
        broken();
    if (const QxHashLookup hit = indices_.lookup(entry))
        return indices_.at(hit.slot);
    const int index = count_ + 1, last = index + (entry[0] == Double ? 1 : 0);
    if (last > mostIndices)
        poolIsFull();
    bytes_.reserve(std::max(bytes_.capacity(), std::bit_ceil(bytes_.size() + entry.size())));
    indices_.insert(entry, index);
    bytes_.insert(bytes_.end(), entry.begin(), entry.end());
    count_ = last;
    return index;
}

void ExprComp::ConstPool::writeBytecode(BytecodeStream& stream) const
{
    stream << shortOf(count_ + 1);
    stream.write(bytes_);
}

// Methods ------------------------------------------------------------------------------------------------------------

ExprComp::Method::Method(ConstPool& pool, const std::string& name, const std::string& descriptor, std::uint16_t access)
    : pool_(pool), nameIndex_(pool.getUtf8(name)), descIndex_(pool.getUtf8(descriptor)),
      codeAttrIndex_(pool.getUtf8("Code")), access_(access)
{
}

int ExprComp::Method::append(const Instr& instr)
{
    offsets_.push_back(codeLength_);
    instrs_.push_back(instr);
    codeLength_ += instr.getSize();
    return getInstrCount() - 1;
}

int ExprComp::Method::add(int op)
{
    return append(Instr(byteOf(op), 0));
}

int ExprComp::Method::addArg1(int op, int arg)
{
    return append(Instr(byteOf(op), 1, byteOf(arg)));
}

int ExprComp::Method::addArg2(int op, int arg0, int arg1)
{
    return append(Instr(byteOf(op), 2, byteOf(arg0), byteOf(arg1)));
}

int ExprComp::Method::addArg2(int op, std::uint16_t arg)
{
    return addArg2(op, arg >> 8, arg & 0xFF);
}

void ExprComp::Method::addIconst(int value)
{
    if (value >= -1 && value <= 5)
        add(op::iconst_0 + value);
    else if (value >= -128 && value <= 127)
        addArg1(op::bipush, value);
    else
        addLdc(pool_.getInteger(value));
}

void ExprComp::Method::addLdc(int index)
{
    if (index <= 255)
        addArg1(op::ldc, index);
    else
        addArg2(op::ldc_w, shortOf(index));
}

void ExprComp::Method::addDconst(double value)
{
    if (value == 0)
        add(op::dconst_0);
    else if (value == 1)
        add(op::dconst_1);
    else
        addArg2(op::ldc2_w, shortOf(pool_.getDouble(value)));
}

void ExprComp::Method::addLoad(int shortBase, int op, int slot)
{
    if (slot < 0)
        broken();
    if (slot <= 3) {
        add(shortBase + slot);
    } else if (slot <= 255) {
        addArg1(op, slot);
    } else {
        add(op::wide);
        addArg2(op, shortOf(slot));
    }
}

int ExprComp::Method::addJumpInstr(int op)
{
    if (!Instr::isJumpOpcode(op))
        broken();
    return addArg2(op, 0, 0);
}

void ExprComp::Method::checkIndex(int i) const
{
    if (i < 0 || i >= getInstrCount())
        broken();
}

void ExprComp::Method::setJumpTarget(int from, int to)
{
    checkIndex(from);
    checkIndex(to);
    Instr& jump = instrs_[static_cast<std::size_t>(from)];
    const int distance = getOffset(to) - getOffset(from);
    if (!Instr::isJumpOpcode(jump.getOpCode()) || jump.getNArgs() != 2 || distance != static_cast<std::int16_t>(distance))
        broken();
    jump.setArg(0, byteOf(distance >> 8));
    jump.setArg(1, byteOf(distance));
}

void ExprComp::Method::setLimits(int maxStack, int maxLocals)
{
    maxStack_ = maxStack;
    maxLocals_ = maxLocals;
}

const ExprComp::Instr& ExprComp::Method::getInstr(int i) const
{
    checkIndex(i);
    return instrs_[static_cast<std::size_t>(i)];
}

int ExprComp::Method::getOffset(int i) const
{
    checkIndex(i);
    return offsets_[static_cast<std::size_t>(i)];
}

void ExprComp::Method::writeBytecode(BytecodeStream& stream) const
{
    std::vector<unsigned char> code;
    code.reserve(static_cast<std::size_t>(codeLength_));
    for (const Instr& instr : instrs_) {
        code.push_back(instr.getOpCode());
        for (int i = 0; i < instr.getNArgs(); ++i)
            code.push_back(instr.getArg(i));
    }
    constexpr std::uint16_t attributes = 1, exceptions = 0, codeAttributes = 0;
    stream << access_ << shortOf(nameIndex_) << shortOf(descIndex_) << attributes << shortOf(codeAttrIndex_)
           << wordOf(code.size() + 12) << shortOf(maxStack_) << shortOf(maxLocals_) << wordOf(code.size());
    stream.write(code);
    stream << exceptions << codeAttributes;
}

// Fields -------------------------------------------------------------------------------------------------------------

ExprComp::Field::Field(ConstPool& pool, const std::string& name, const std::string& descriptor, std::uint16_t access,
                       int valueIndex)
    : nameIndex_(pool.getUtf8(name)), descIndex_(pool.getUtf8(descriptor)), constAttrIndex_(pool.getUtf8("ConstantValue")),
      access_(access), valueIndex_(valueIndex)
{
}

void ExprComp::Field::writeBytecode(BytecodeStream& stream) const
{
    stream << access_ << shortOf(nameIndex_) << shortOf(descIndex_) << shortOf(valueIndex_ < 0 ? 0 : 1);
    if (valueIndex_ >= 0)
        stream << shortOf(constAttrIndex_) << std::uint32_t(2) << shortOf(valueIndex_);
}

// Classes ------------------------------------------------------------------------------------------------------------

ExprComp::ClassFile::ClassFile(QxStringPool& texts, const std::string& className, const std::string& superName)
    : name_(className), pool_(texts), functions_(boost::make_shared<FunctionTable>(*this)),
      thisIndex_(pool_.getClass(className)), superIndex_(pool_.getClass(superName))
{
    constexpr std::uint16_t isPrivate = 2;
    const auto constructor = boost::make_shared<Method>(pool_, "<init>", "()V", isPrivate);
    constructor->addAload(0);
    constructor->addArg2(op::invokespecial, shortOf(pool_.getMethod(superName, "<init>", "()V")));
    constructor->add(op::return_);
    constructor->setLimits(1, 1);
    addMethod(constructor);
}

ExprComp::ClassFile::~ClassFile() = default;

void ExprComp::ClassFile::addMethod(const boost::shared_ptr<Method>& method)
{
    methods_.push_back(method);
}

void ExprComp::ClassFile::addHelper(const boost::shared_ptr<Method>& method)
{
    methods_.insert(methods_.begin() + 1, method);
}

void ExprComp::ClassFile::addField(const boost::shared_ptr<Field>& field)
{
    fields_.push_back(field);
}

void ExprComp::ClassFile::write(BytecodeStream& stream)
{
    const int attribute = pool_.getUtf8("SourceFile"), sourceFile = pool_.getUtf8("Byte code generated by QUORIX.");
    if (pool_.getCount() > mostWritable)
        poolIsFull();

    constexpr std::uint32_t magic = 0xCAFEBABE;
    constexpr std::uint16_t minorVersion = 0, majorVersion = 46, publicClass = 0x0021, interfaces = 0, attributes = 1;
    stream << magic << minorVersion << majorVersion;
    pool_.writeBytecode(stream);
    stream << publicClass << shortOf(thisIndex_) << shortOf(superIndex_) << interfaces;
    stream << static_cast<std::uint16_t>(fields_.size());
    for (const boost::shared_ptr<Field>& field : fields_)
        field->writeBytecode(stream);
    stream << static_cast<std::uint16_t>(methods_.size());
    for (const boost::shared_ptr<Method>& method : methods_)
        method->writeBytecode(stream);
    stream << attributes << shortOf(attribute) << std::uint32_t(2) << shortOf(sourceFile);
}
