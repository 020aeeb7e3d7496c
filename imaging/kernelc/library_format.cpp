#include "imaging/kernelc/library_format.h"

#include "imaging/kernelc/abi.h"

#include <cstring>

namespace vorn::kernelc {
namespace {

constexpr char kMagic[8] = {'V', 'O', 'R', 'N', 'K', 'L', 'I', 'B'};
constexpr size_t kHeaderSize = 8 + 4 + 4 + 8 + 8;

uint64_t checksum(std::string_view bytes) {
    uint64_t hash = 14695981039346656037ull;
    for (const unsigned char byte : bytes) hash = (hash ^ byte) * 1099511628211ull;
    return hash;
}

class Writer {
public:
    template <class T>
    void number(T value) {
        out.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    void block(std::string_view bytes) {
        number<uint64_t>(bytes.size());
        out.append(bytes);
    }
    std::string out;
};

/// Reads past the end give zeros and set `failed`.
class Reader {
public:
    explicit Reader(std::string_view bytes) : rest_(bytes) {}

    template <class T>
    T number() {
        T value{};
        if (rest_.size() < sizeof value) {
            failed = true;
            return value;
        }
        std::memcpy(&value, rest_.data(), sizeof value);
        rest_.remove_prefix(sizeof value);
        return value;
    }
    std::string_view block() {
        const uint64_t size = number<uint64_t>();
        if (size > rest_.size()) {
            failed = true;
            return {};
        }
        const std::string_view bytes = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return bytes;
    }
    bool failed = false;

private:
    std::string_view rest_;
};

} // namespace

const char* thisProcessor() {
#if defined(__x86_64__)
    return "x86_64";
#elif defined(__aarch64__)
    return "aarch64";
#else
    return "unknown";
#endif
}

size_t sourceCount(const Function& function) {
    size_t count = function.kind == FunctionKind::Warp ? 1 : 0;
    for (const Parameter& parameter : function.parameters) count += isImage(parameter.type);
    return count;
}

size_t givenCount(const Function& function) {
    size_t count = 0;
    for (const Parameter& parameter : function.parameters)
        count += parameter.type != ParameterType::Reduced;
    return count;
}

size_t callBytes(const Function& function) {
    size_t arguments = 0;
    for (const Parameter& parameter : function.parameters)
        arguments += static_cast<size_t>(flattenedSize(parameter.type));
    return kRegionBytes + kSourceBytes * sourceCount(function) + 4 * arguments;
}

std::string serialize(const Library& library) {
    Writer body;
    body.block(library.name);
    body.block(library.processor);
    body.number<uint32_t>(static_cast<uint32_t>(library.functions.size()));
    for (const Function& function : library.functions) {
        body.block(function.name);
        body.number(static_cast<uint8_t>(function.kind));
        body.number<uint32_t>(static_cast<uint32_t>(function.parameters.size()));
        for (const Parameter& parameter : function.parameters) {
            body.block(parameter.name);
            body.number(static_cast<uint8_t>(parameter.type));
            body.number<uint8_t>(parameter.readsOwnPixelOnly);
        }
        body.block({reinterpret_cast<const char*>(function.spirv.data()),
                    function.spirv.size() * sizeof(uint32_t)});
    }
    body.number<uint32_t>(static_cast<uint32_t>(library.code.size()));
    for (const Code& code : library.code) {
        body.block(code.level);
        body.number<uint32_t>(code.lanes);
        body.block(code.object);
    }
    Writer file;
    file.out.append(kMagic, sizeof kMagic);
    file.number<uint32_t>(kFormatVersion);
    file.number<uint32_t>(kernelabi::kKernelAbiVersion);
    file.number<uint64_t>(kHeaderSize + body.out.size());
    file.number<uint64_t>(checksum(body.out));
    return file.out + body.out;
}

std::string parse(std::string_view bytes, Library& library) {
    if (bytes.empty()) return "The kernel library is empty.";
    const size_t magicSize = std::min(bytes.size(), sizeof kMagic);
    if (std::memcmp(bytes.data(), kMagic, magicSize) != 0)
        return "The file is not a kernel library.";
    Reader header(bytes.substr(magicSize));
    const auto format = header.number<uint32_t>();
    const auto abi = header.number<uint32_t>();
    const auto size = header.number<uint64_t>();
    const auto sum = header.number<uint64_t>();
    if (header.failed)
        return "The kernel library is truncated: its header is " + std::to_string(kHeaderSize) +
               " bytes long, the file has " + std::to_string(bytes.size()) + ".";
    if (format != kFormatVersion)
        return "The kernel library has format version " + std::to_string(format) +
               "; this version reads " + std::to_string(kFormatVersion) + ".";
    if (bytes.size() < size)
        return "The kernel library is truncated: " + std::to_string(bytes.size()) + " of " +
               std::to_string(size) + " bytes.";
    const std::string_view body = bytes.substr(kHeaderSize);
    if (bytes.size() != size || checksum(body) != sum)
        return "The kernel library is damaged: its checksum does not match.";
    if (abi != kernelabi::kKernelAbiVersion)
        return "The kernel library was made for kernel interface " + std::to_string(abi) +
               "; this version has " + std::to_string(kernelabi::kKernelAbiVersion) + ".";

    Reader reader(body);
    library.name = reader.block();
    library.processor = reader.block();
    for (auto left = reader.number<uint32_t>(); left > 0 && !reader.failed; --left) {
        Function& function = library.functions.emplace_back();
        function.name = reader.block();
        function.kind = static_cast<FunctionKind>(reader.number<uint8_t>());
        for (auto more = reader.number<uint32_t>(); more > 0 && !reader.failed; --more) {
            Parameter& parameter = function.parameters.emplace_back();
            parameter.name = reader.block();
            parameter.type = static_cast<ParameterType>(reader.number<uint8_t>());
            parameter.readsOwnPixelOnly = reader.number<uint8_t>() != 0;
        }
        const std::string_view spirv = reader.block();
        function.spirv.resize(spirv.size() / sizeof(uint32_t));
        if (!function.spirv.empty())
            std::memcpy(function.spirv.data(), spirv.data(),
                        function.spirv.size() * sizeof(uint32_t));
    }
    for (auto left = reader.number<uint32_t>(); left > 0 && !reader.failed; --left) {
        Code& code = library.code.emplace_back();
        code.level = reader.block();
        code.lanes = reader.number<uint32_t>();
        code.object = reader.block();
    }
    if (reader.failed) return "The kernel library is damaged: its contents end too early.";
    if (library.processor != thisProcessor())
        return "The kernel library is for the processor " + library.processor + "; this one is " +
               thisProcessor() + ".";
    return {};
}

} // namespace vorn::kernelc
