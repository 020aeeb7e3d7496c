#include "imaging/kernelc/library_check.h"

#include <cstring>
#include <elf.h>
#include <link.h>

namespace vorn::kernelc {
namespace {

/// The name of the table, with the zero byte that ends it.
constexpr std::string_view kTableName("vorn_kernel_table", sizeof "vorn_kernel_table");

#if defined(__x86_64__)
constexpr auto kMachine = EM_X86_64;
#elif defined(__aarch64__)
constexpr auto kMachine = EM_AARCH64;
#else
constexpr auto kMachine = EM_NONE;
#endif

/// One of the structures of an object, wherever it lies; false when it is not inside.
template <class T>
bool readAt(std::string_view object, uint64_t offset, T& value) {
    if (offset > object.size() || object.size() - offset < sizeof value) return false;
    std::memcpy(&value, object.data() + offset, sizeof value);
    return true;
}

bool isInside(std::string_view object, uint64_t offset, uint64_t size) {
    return offset <= object.size() && size <= object.size() - offset;
}

/// Whether the name at an offset of the names of symbols is that of the table.
bool isTableName(std::string_view object, const ElfW(Shdr) & names, uint64_t offset) {
    return isInside(object, names.sh_offset, names.sh_size) && offset < names.sh_size &&
           names.sh_size - offset >= kTableName.size() &&
           object.substr(names.sh_offset + offset, kTableName.size()) == kTableName;
}

bool exportsTable(std::string_view object, const ElfW(Ehdr) & header) {
    for (unsigned i = 0; i < header.e_shnum; ++i) {
        ElfW(Shdr) section, names;
        if (!readAt(object, header.e_shoff + uint64_t{i} * header.e_shentsize, section))
            return false;
        if (section.sh_type != SHT_DYNSYM) continue;
        if (!isInside(object, section.sh_offset, section.sh_size) ||
            section.sh_link >= header.e_shnum ||
            !readAt(object, header.e_shoff + uint64_t{section.sh_link} * header.e_shentsize, names))
            return false;
        for (uint64_t at = 0; at + sizeof(ElfW(Sym)) <= section.sh_size; at += sizeof(ElfW(Sym))) {
            ElfW(Sym) symbol;
            if (!readAt(object, section.sh_offset + at, symbol)) return false;
            if (symbol.st_shndx != SHN_UNDEF && isTableName(object, names, symbol.st_name))
                return true;
        }
    }
    return false;
}

std::string problemOf(const Function& function) {
    bool samplers = false, pixels = false, reduced = false;
    if (function.kind > FunctionKind::Warp) return "is of an unknown kind";
    for (const Parameter& parameter : function.parameters) {
        if (parameter.type > ParameterType::Reduced)
            return "has a parameter of an unknown type, '" + parameter.name + "'";
        if (reduced && parameter.type != ParameterType::Reduced)
            return "has a parameter behind a reduced image, '" + parameter.name + "'";
        samplers |= parameter.type == ParameterType::Sampler;
        pixels |= parameter.type == ParameterType::Pixel;
        reduced |= parameter.type == ParameterType::Reduced;
    }
    if (reduced && !samplers) return "has a reduced image and no sampler";
    if (samplers && pixels) return "reads images in two ways";
    if (function.kind == FunctionKind::Warp && (samplers || pixels))
        return "is a warp kernel and takes an image";
    if (function.kind == FunctionKind::Color && samplers)
        return "is a colour kernel and takes a sampler";
    return {};
}

} // namespace

std::string declarationProblem(const Library& library) {
    for (const Function& function : library.functions)
        if (const std::string problem = problemOf(function); !problem.empty())
            return "The kernel library is damaged: its function '" + function.name + "' " +
                   problem + ".";
    return {};
}

std::string codeProblem(const Code& code) {
    const std::string_view object = code.object;
    ElfW(Ehdr) header;
    if (!readAt(object, 0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0)
        return "it is no shared object";
    if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_ident[EI_DATA] != ELFDATA2LSB ||
        header.e_machine != kMachine || header.e_type != ET_DYN ||
        header.e_phentsize != sizeof(ElfW(Phdr)) || header.e_shentsize != sizeof(ElfW(Shdr)))
        return "it is no shared object for this processor";
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        ElfW(Phdr) part;
        if (!readAt(object, header.e_phoff + uint64_t{i} * sizeof part, part) ||
            !isInside(object, part.p_offset, part.p_filesz))
            return "its shared object is truncated";
    }
    if (!isInside(object, header.e_shoff, uint64_t{header.e_shnum} * header.e_shentsize))
        return "its shared object is truncated";
    if (!exportsTable(object, header)) return "its shared object has no table of kernels";
    return {};
}

} // namespace vorn::kernelc
