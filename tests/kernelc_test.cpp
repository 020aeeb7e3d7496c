// The kernel compiler, run as the build runs it: what it says of mistakes, and what it makes of a
// source.
#include "bundle_copy.h"
#include "imaging/kernelc/library_check.h"
#include "imaging/kernelc/library_format.h"
#include "support.h"

#include <ostream>
#include <unistd.h>

namespace {

/// A folder of its own with one source and one header in it.
class Compiler {
public:
    Compiler() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "vorn-kernelc-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
        folder_ = pattern;
        std::filesystem::create_directory(folder_ / "include");
        write("include/helper.h", "float helper(float x) { return x * 2.0; }\n");
    }
    ~Compiler() { std::filesystem::remove_all(folder_); }

    void write(const std::string& name, const std::string& text) const {
        std::ofstream(folder_ / name) << text;
    }

    struct Result {
        int status;
        std::string output;
    };
    /// Compiles a source for the reference level, and for others that are named.
    Result compile(const std::string& text, const std::string& levels = "") const {
        write("Test.kernel", text);
        const std::string in = folder_.string() + "/";
        const std::string command =
            "cd " + in + " && timeout 60 " VORN_KERNELC " --output Test.ci.metallib --include " +
            in +
            "include --lanes " VORN_LANES " --compiler " VORN_COMPILER
            " --validator " VORN_SPIRV_VALIDATOR " --depfile Test.d --temporary " +
            in + " --level reference:1:-O0 " + levels + " Test.kernel > log 2>&1";
        // A mistake may not eat up the machine either.
        const int status = std::system(("ulimit -v 4000000; " + command).c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, fileContents(folder_ / "log")};
    }
    bool hasLibrary() const { return std::filesystem::exists(path("Test.ci.metallib")); }
    std::filesystem::path path(const std::string& name) const { return folder_ / name; }

private:
    std::filesystem::path folder_;
};

struct MistakeCase {
    const char* name;
    const char* source;
    /// What the output must contain: our own messages with file and line, or a compiler's.
    const char* message;
};

std::ostream& operator<<(std::ostream& stream, const MistakeCase& test) {
    return stream << test.name;
}

class Mistakes : public testing::TestWithParam<MistakeCase> {};

TEST_P(Mistakes, AreReportedAndLeaveNoLibrary) {
    const Compiler compiler;
    const Compiler::Result result = compiler.compile(GetParam().source);
    EXPECT_EQ(result.status, 1) << result.output.substr(0, 2000);
    EXPECT_NE(result.output.find(GetParam().message), std::string::npos)
        << result.output.substr(0, 2000);
    EXPECT_NE(result.output.find("Test.kernel"), std::string::npos) << "names the source";
    EXPECT_FALSE(compiler.hasLibrary());
}

const MistakeCase kMistakes[] = {
    {"NoKernel", "float f(float x) { return x; }\n", "Test.kernel: declares no kernel"},
    {"Empty", "", "Test.kernel: declares no kernel"},
    {"UnknownParameterType", "\n\nkernel vec4 k(__sample s, double x) { return s; }\n",
     "Test.kernel:3: 'double' is not a type of kernel parameters"},
    {"MatrixParameter", "kernel vec4 k(__sample s, mat2 m) { return s; }\n",
     "Test.kernel:1: 'mat2' is not a type of kernel parameters"},
    {"ReducedBeforeAnother", "kernel vec4 k(sampler s, reduced r, float x) { return vec4(x); }\n",
     "Test.kernel:1: reduced images stand after all other parameters"},
    {"ReducedOfNothing", "kernel vec4 k(float x, reduced r) { return vec4(x); }\n",
     "Test.kernel:1: a reduced image is that of the first sampler, and there is none"},
    {"WrongResult", "kernel float k(__sample s) { return s.r; }\n",
     "Test.kernel:1: a kernel returns vec4 (a colour) or vec2 (a source coordinate)"},
    {"TwoOfOneName",
     "kernel vec4 k(__sample s) { return s; }\nkernel vec4 k(__sample s) { return s; }\n",
     "Test.kernel:2: there is a kernel 'k' already"},
    {"SamplerAndPixel", "kernel vec4 k(sampler a, __sample b) { return b; }\n",
     "Test.kernel:1: a kernel has sampler or __sample parameters, not both"},
    {"WarpWithImage", "kernel vec2 k(sampler a) { return destCoord(); }\n",
     "Test.kernel:1: a warp kernel takes no image"},
    {"MissingInclude", "#include \"nothing.h\"\nkernel vec4 k(__sample s) { return s; }\n",
     "nothing.h: cannot be read"},
    {"OtherDirective", "#define X 1\nkernel vec4 k(__sample s) { return s; }\n",
     "Test.kernel:1: only #include \"header\" is understood"},
    {"MissingComma", "kernel vec4 k(__sample s float x) { return s; }\n",
     "Test.kernel:1: expected ','"},
    {"MissingName", "kernel vec4 k(__sample) { return s; }\n", "Test.kernel:1: expected a name"},
    {"MissingBody", "kernel vec4 k(__sample s);\n", "Test.kernel:1: expected '{'"},
    {"Unfinished", "kernel vec4 k(__sample s) { return s;\n", "expected '}'"},
    {"UnfinishedParameters", "kernel vec4 k(__sample s", "Test.kernel:1:"},
    {"UniformWithoutEnd", "kernel vec4 k(__sample s) { uniform float x = 1.0 }\n",
     "Test.kernel:1:"},
    {"UniformOfUnknownType", "kernel vec4 k(__sample s) {\n uniform flaot x = 1.0; return s; }\n",
     "Test.kernel:2: 'flaot' is not a type"},
    {"PerPixelIf", "kernel vec4 k(__sample s) {\n if (s.r > 0.5) return s;\n return s * 2.0; }\n",
     "Test.kernel:2"},
    {"PerPixelLoop",
     "kernel vec4 k(__sample s) {\n float x = 0.0;\n for (int i = 0; i < int(s.r); ++i) x += 1.0;\n"
     " return s * x; }\n",
     "Test.kernel:3"},
    {"PerPixelUniform", "kernel vec4 k(__sample s) {\n uniform float x = s.r;\n return s * x; }\n",
     "Test.kernel:2"},
    {"AssignmentToASwizzle", "kernel vec4 k(__sample s) {\n s.rgb = vec3(1.0);\n return s; }\n",
     "Test.kernel:2"},
    {"LatticeOfNoCall", "kernel vec4 k(float x) {\n return vec4(lattice(x)); }\n",
     "Test.kernel:2: lattice takes the call of a function, and nothing else"},
    {"LatticeOfASum",
     "float f(int x, int y) { return 1.0; }\n"
     "kernel vec4 k(float x) { return vec4(lattice(f(1, 2) + x)); }\n",
     "Test.kernel:2: lattice takes the call of a function, and nothing else"},
    {"LatticeOfALine",
     "float f(int x) { return 1.0; }\nkernel vec4 k(float x) { return vec4(lattice(f(1))); }\n",
     "Test.kernel:2: a function of a lattice takes two coordinates"},
    {"PerPixelLattice",
     "float f(int x, int y, float z) { return z; }\n"
     "kernel vec4 k(float x) {\n return vec4(lattice(f(1, 2, destCoord().x))); }\n",
     "what a lattice depends on is the same for every pixel"},
    {"UnknownName", "kernel vec4 k(__sample s) {\n return s * nothing; }\n", "Test.kernel:2"},
    {"HeaderMistake", "#include \"helper.h\"\nkernel vec4 k(__sample s) {\n return helper(s); }\n",
     "Test.kernel:3"},
};

INSTANTIATE_TEST_SUITE_P(, Mistakes, testing::ValuesIn(kMistakes),
                         [](const auto& test) { return test.param.name; });

TEST(KernelCompiler, WritesALibraryThatTheEngineRuns) {
    const Compiler compiler;
    ASSERT_EQ(
        compiler
            .compile(
                "#include \"helper.h\"\n#include \"helper.h\" // once is enough\n"
                "kernel vec4 doubled(__sample s) { return vec4(helper(s.r), s.g, s.b, s.a); }\n"
                "kernel vec4 at(sampler image, vec2 p, int i, uint u) {\n"
                "    return sample(image, p) * float(i); }\n"
                "kernel vec4 here(sampler image) { return sample(image, destCoord()); }\n"
                "kernel vec2 moved(vec3 d) { return destCoord() + d.xy; }\n",
                "--level other:1:-O0")
            .status,
        0);
    using namespace vorn::kernelc;
    Library library;
    EXPECT_EQ(parse(fileContents(compiler.path("Test.ci.metallib")), library), "");
    EXPECT_EQ(library.name, "Test");
    ASSERT_EQ(library.functions.size(), 4u);
    const FunctionKind kinds[] = {FunctionKind::Color, FunctionKind::General, FunctionKind::General,
                                  FunctionKind::Warp};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(library.functions[i].kind, kinds[i]);
        ASSERT_GT(library.functions[i].spirv.size(), 5u);
        EXPECT_EQ(library.functions[i].spirv[0], 0x07230203u) << "the magic number of SPIR-V";
    }
    EXPECT_TRUE(library.functions[0].parameters[0].readsOwnPixelOnly);
    EXPECT_FALSE(library.functions[1].parameters[0].readsOwnPixelOnly);
    EXPECT_TRUE(library.functions[2].parameters[0].readsOwnPixelOnly);
    const ParameterType types[] = {ParameterType::Sampler, ParameterType::Vec2, ParameterType::Int,
                                   ParameterType::Uint};
    ASSERT_EQ(library.functions[1].parameters.size(), 4u);
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(library.functions[1].parameters[i].type, types[i]);
    EXPECT_EQ(library.code.size(), 2u);
    const std::string dependencies = fileContents(compiler.path("Test.d"));
    EXPECT_NE(dependencies.find("helper.h"), std::string::npos) << dependencies;

    KernelError error;
    const CIKernel doubled = CIKernel::kernelWithFunctionName(
        "doubled", dataWithContentsOfFile(compiler.path("Test.ci.metallib").string()), &error);
    ASSERT_TRUE(doubled) << error.localizedDescription;
    const CIImage image =
        doubled.applyWithExtent({0, 0, 2, 2}, {CIImage::imageWithColor(CIColor(0.25, 0.5, 0.75))});
    EXPECT_TRUE(isClose(render(referenceContext(), image, {0, 0, 2, 2}, CIFormat::RGBAf),
                        [](int, int) {
                            return Pixel{0.5, 0.5, 0.75, 1};
                        },
                        {1e-7}));
}

// ---- Libraries that were read ------------------------------------------------------------------

using vorn::kernelc::Function;
using vorn::kernelc::FunctionKind;
using vorn::kernelc::Parameter;
using vorn::kernelc::ParameterType;

Data libraryOf(const Function& function, const std::string& level, const std::string& object) {
    const std::string bytes = vorn::kernelc::serialize(
        {"Test", vorn::kernelc::thisProcessor(), {function}, {{level, 1, object}}});
    return std::make_shared<std::vector<uint8_t>>(bytes.begin(), bytes.end());
}

TEST(KernelLibraries, WhoseDeclarationsMakeNoSenseAreRefused) {
    const Parameter sampler{"a", ParameterType::Sampler, false},
        pixel{"b", ParameterType::Pixel, true}, number{"c", ParameterType::Float, false},
        reduced{"d", ParameterType::Reduced, false}, unknown{"e", ParameterType(9), false};
    const struct {
        Function function;
        const char* problem; // null: it makes sense
    } cases[] = {
        {{"f", FunctionKind::General, {sampler, number, reduced}, {}}, nullptr},
        {{"f", FunctionKind::Color, {pixel, number}, {}}, nullptr},
        {{"f", FunctionKind::Warp, {number}, {}}, nullptr},
        {{"f", FunctionKind(3), {sampler}, {}}, "is of an unknown kind"},
        {{"f", FunctionKind::General, {sampler, unknown}, {}}, "of an unknown type, 'e'"},
        {{"f", FunctionKind::General, {reduced}, {}}, "has a reduced image and no sampler"},
        {{"f", FunctionKind::General, {sampler, reduced, number}, {}}, "behind a reduced image"},
        {{"f", FunctionKind::General, {sampler, pixel}, {}}, "reads images in two ways"},
        {{"f", FunctionKind::Color, {sampler}, {}}, "is a colour kernel and takes a sampler"},
        {{"f", FunctionKind::Warp, {sampler}, {}}, "is a warp kernel and takes an image"},
    };
    for (const auto& c : cases) {
        KernelError error;
        const CIKernel kernel =
            CIKernel::kernelWithFunctionName("f", libraryOf(c.function, "none", ""), &error);
        const std::string problem = c.problem ? c.problem : "";
        EXPECT_EQ(static_cast<bool>(kernel), !c.problem) << problem;
        EXPECT_NE(error.localizedDescription.find(problem), std::string::npos)
            << error.localizedDescription;
    }
}

TEST(KernelLibraries, AreCheckedWithoutRunningAnythingInThem) {
    const Compiler compiler;
    const auto object = [&](const std::string& text) {
        compiler.write("code.cpp", text);
        const std::string command = std::string(VORN_COMPILER) + " -shared -fPIC -o " +
                                    compiler.path("code.so").string() + " " +
                                    compiler.path("code.cpp").string();
        EXPECT_EQ(std::system(command.c_str()), 0);
        return fileContents(compiler.path("code.so"));
    };
    const Function function{"f", FunctionKind::General, {}, {}};
    const std::string level = supportedInstructionSets().front();
    const auto problemOf = [&](const std::string& code) {
        return kernelLibraryProblem(libraryOf(function, level, code)).value_or("");
    };
    const std::string whole = object(
        "#include <cstdlib>\n"
        "[[gnu::constructor]] static void run() { setenv(\"VORN_TEST_CODE_RAN\", \"1\", 1); }\n"
        "extern \"C\" { const void* vorn_kernel_table[3]; }\n");
    EXPECT_EQ(problemOf(whole), "");
    EXPECT_EQ(std::getenv("VORN_TEST_CODE_RAN"), nullptr);

    const std::string start = "cannot load the " + level + " code of kernel library 'Test': it";
    for (size_t length = 0; length < whole.size(); length += 1 + length / 50)
        EXPECT_EQ(problemOf(whole.substr(0, length)).substr(0, start.size()), start) << length;
    // Whatever the bytes that say where things lie are: checked, and no crash.
    for (size_t at = 0; at < whole.size(); ++at)
        for (const char byte : {'\x00', '\x7F', '\xFF'})
            if (at < 0x400 || at > whole.size() - 0x800) {
                std::string damaged = whole;
                damaged[at] = byte;
                vorn::kernelc::codeProblem({level, 1, damaged});
            }
    EXPECT_EQ(problemOf(object("int nothing;\n")),
              start + "s shared object has no table of kernels");
    std::string foreign = whole;
    foreign[18] = 8; // a MIPS machine
    EXPECT_EQ(problemOf(foreign), start + " is no shared object for this processor");
    EXPECT_EQ(kernelLibraryProblem(libraryOf(function, "another level", whole)),
              "The kernel 'f' has no code for this processor.");
    EXPECT_EQ(std::getenv("VORN_TEST_CODE_RAN"), nullptr);
}

TEST(KernelCompiler, TheTestLibrariesHaveCodeForEveryLevel) {
    for (const char* name : {"Language", "EnginePictures", "BuiltinFunctions"}) {
        const std::string path = std::string(VORN_TEST_KERNELS "/") + name + ".ci.metallib";
        vorn::kernelc::Library library;
        ASSERT_EQ(vorn::kernelc::parse(fileContents(path), library), "");
        std::vector<std::string> levels;
        for (const auto& code : library.code) levels.push_back(code.level);
        EXPECT_NE(std::find(levels.begin(), levels.end(), "reference"), levels.end());
        for (const std::string& level : supportedInstructionSets())
            EXPECT_NE(std::find(levels.begin(), levels.end(), level), levels.end()) << level;
        for (const auto& function : library.functions)
            EXPECT_FALSE(function.spirv.empty()) << function.name;
        EXPECT_EQ(kernelLibraryProblem(dataWithContentsOfFile(path)), std::nullopt);
    }
}

} // namespace
