// SPDX-License-Identifier: LicenseRef-qxkernel
// Files that cannot be written, and memory that runs out.
#include "class_reader.hpp"
#include "probe.hpp"
#include "random_list.hpp"
#include "support/alloc_fault.hpp"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/resource.h>

using namespace qxtest;
namespace fs = std::filesystem;

namespace {

class ClassFileOnDisk : public testing::Test
{
protected:
    void SetUp() override
    {
        directory = fs::temp_directory_path() / ("qxcompiler." + std::to_string(::getpid()));
        fs::create_directory(directory);
    }
    void TearDown() override { fs::remove_all(directory); }

    static void compileTo(const std::string& fileName)
    {
        ExprComp::compile("T", "f", fileName, {"y=sin(a)"}, {"a"}, {"y"}, false);
    }

    fs::path directory;
};

/// Files of this process end after so many bytes: what a full disk does, for a scope.
class SmallFilesOnly
{
public:
    explicit SmallFilesOnly(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~SmallFilesOnly()
    {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    SmallFilesOnly(const SmallFilesOnly&) = delete;
    SmallFilesOnly& operator=(const SmallFilesOnly&) = delete;

private:
    rlimit before_{};
    void (*handler_)(int);
};

} // namespace

TEST_F(ClassFileOnDisk, HasTheBytesOfTheMemoryForm)
{
    const fs::path file = directory / "T.class";
    compileTo(file.string());
    std::ifstream in(file, std::ios::binary);
    const Bytes onDisk{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    Bytes inMemory{1, 2, 3};
    ExprComp::compile("T", "f", inMemory, {"y=sin(a)"}, {"a"}, {"y"}, false);

    EXPECT_EQ(onDisk, inMemory);
    EXPECT_EQ(ClassReader(inMemory).name, "T");
}

TEST_F(ClassFileOnDisk, RefusesAFileThatCannotBeOpened)
{
    for (const fs::path& file : {directory / "none" / "T.class", directory, fs::path()}) {
        const qxbase::Exception raised = failureOf([&] { compileTo(file.string()); });
        EXPECT_EQ(raised.getId(), "Cannot_create_native_file") << file;
        ASSERT_EQ(raised.size(), 1u);
        EXPECT_EQ(raised.getArgs(0).front().first, file.string());
        EXPECT_EQ(raised.getFile(0), "exprcomp");
    }
    EXPECT_TRUE(fs::is_directory(directory));
}

TEST_F(ClassFileOnDisk, ReportsAFullDiskAndRemovesOnlyARegularFile)
{
    ASSERT_TRUE(fs::exists("/dev/full"));
    EXPECT_EQ(idOf([] { compileTo("/dev/full"); }), "Cannot_create_native_file");
    EXPECT_TRUE(fs::exists("/dev/full"));
}

TEST_F(ClassFileOnDisk, RemovesAFileThatItCouldNotFinish)
{
    const fs::path file = directory / "T.class";
    const SmallFilesOnly limit(50); // a class is longer

    EXPECT_EQ(idOf([&] { compileTo(file.string()); }), "Cannot_create_native_file");

    EXPECT_FALSE(fs::exists(file));
}

TEST_F(ClassFileOnDisk, FormulasThatDoNotCompileLeaveAFileAsItWas)
{
    const fs::path file = directory / "T.class";
    std::ofstream(file) << "kept";

    EXPECT_EQ(idOf([&] { ExprComp::compile("T", "f", file.string(), {"y=sin(z)"}, {"a"}, {"y"}, false); }),
              "Undefined inputs: z");
    EXPECT_EQ(idOf([&] { ExprComp::compile("T", "f", file.string(), {"y"}, {"a"}, {"y"}, false); }),
              "Syntax_error_in_expression");

    std::ifstream in(file);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "kept");
}

TEST(ExprCompFailure, MemoryFormIsClearedFirst)
{
    Bytes bytes{1, 2, 3};
    EXPECT_EQ(idOf([&] { ExprComp::compile("T", "f", bytes, {"y=sin(z)"}, {}, {"y"}, false); }), "Undefined inputs: z");
    EXPECT_TRUE(bytes.empty());
}

TEST(ExprCompFailure, ClassAndMethodNamesThatAreTooLongAreRefused)
{
    Bytes bytes;
    const std::string name(65536, 'x');
    EXPECT_EQ(idOf([&] { ExprComp::compile(name, "f", bytes, {"y=1"}, {}, {"y"}, false); }),
              "Compilation failed: Too many different constants.");
    EXPECT_EQ(idOf([&] { ExprComp::compile("T", name, bytes, {"y=1"}, {}, {"y"}, false); }),
              "Compilation failed: Too many different constants.");
}

TEST(ExprCompFailure, EveryAllocationOfParseAndCompileMayFail)
{
    RandomList list(7, {3, 60, 3, true, 0});
    Bytes wanted, bytes;
    const auto act = [&] {
        bytes.clear();
        Probe comp(list.definitions, list.inputs, list.outputs);
        bytes = comp.classBytes("T", "f", true);
        std::vector<double> out;
        try {
            comp.eval({0.5, 0.25, 0.75}, out);
        } catch (const qxbase::Exception&) {
            // a value outside its function's domain
        }
    };
    act();
    wanted = bytes;
    bytes.reserve(wanted.size());

    const long allocations = failEveryAllocation(act, [&](const FaultRun& run) {
        EXPECT_TRUE(run.badAlloc || (!run.faulted && run.id.empty())) << "allocation " << run.n << ": " << run.id;
        if (!run.badAlloc) {
            EXPECT_EQ(bytes, wanted);
        }
    });
    EXPECT_GT(allocations, 200);
}

TEST(ExprCompFailure, ParseThatRunsOutOfMemoryAddsNothing)
{
    const Texts definitions{"y=+(s,k)", "s=sin(a)", "k=0.25"};
    long leftOver = 0;
    failEveryAllocation(
        [&] {
            Probe comp;
            try {
                comp.parse(definitions, {"a"}, {"y"});
            } catch (const std::bad_alloc&) {
                leftOver += static_cast<long>(comp.defs.size() + comp.inputs.size() + comp.outputs.size());
                throw;
            }
        },
        [](const FaultRun&) {});
    EXPECT_EQ(leftOver, 0);
}
