// A small host that the tests run on copies of the library. Its arguments are steps, done in
// order: "verb" or "verb:argument:argument". It prints what came of each.
#include "core/FilterSupport.h"

#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <unistd.h>

namespace {

using Arguments = std::vector<std::string>;

Arguments splitAtColons(const std::string& step) {
    Arguments parts(1);
    for (const char c : step)
        if (c == ':')
            parts.emplace_back();
        else
            parts.back() += c;
    return parts;
}

void printAll(const char* title, const std::vector<std::string>& names) {
    std::printf("%s:", title);
    for (const std::string& name : names) std::printf(" %s", name.c_str());
    std::puts("");
}

void printResult(const char* what, bool isThere) {
    std::printf("%s %s\n", isThere ? "a" : "no", what);
}

const std::map<std::string, std::function<void(const Arguments&)>> kVerbs{
    {"register", [](const Arguments&) { VornEffectsRegistrar::registerAllFilters(); }},
    {"problem",
     [](const Arguments&) {
         std::printf("problem:\n%s", VornEffectsRegistrar::registrationProblem().c_str());
     }},
    {"names",
     [](const Arguments&) { printAll("catalogue", VornEffectsCatalog::allFilterNames()); }},
    {"registered",
     [](const Arguments&) { printAll("registered", CIFilter::filterNames(kVornFilterCategory)); }},
    {"class",
     [](const Arguments& a) {
         const Class found = VornEffectsCatalog::filterClassForName(a.at(1));
         std::printf("class %s\n", found ? found->name : "none");
     }},
    {"create",
     [](const Arguments& a) {
         printResult("filter", CIFilter::filterWithName(a.at(1)) != nullptr);
     }},
    {"construct",
     [](const Arguments& a) {
         printResult("filter", VornEffectsFilterConstructor().filterWithName(a.at(1)) != nullptr);
     }},
    {"copy",
     [](const Arguments& a) {
         std::filesystem::copy_file(a.at(1), a.at(2),
                                    std::filesystem::copy_options::overwrite_existing);
     }},
    {"remove", [](const Arguments& a) { std::filesystem::remove(a.at(1)); }},
    {"kernel",
     [](const Arguments& a) {
         const Class owner = classFromString("VEDummy");
         printResult("kernel", static_cast<bool>(VornEffectsLoadKernel(owner, a.at(1), a.at(2))));
     }},
    {"without-privileges",
     [](const Arguments&) {
         constexpr uid_t kNobody = 65534;
         if (geteuid() == 0 && setuid(kNobody) != 0) std::puts("still privileged");
     }},
    {"refuse",
     [](const Arguments& a) {
         ErrorImage errorImage;
         for (int frame = 0; frame < 2; ++frame)
             printResult("picture", static_cast<bool>(errorImage.imageFor(a.at(1))));
     }},
};

} // namespace

int main(int count, char** steps) {
    try {
        for (int index = 1; index < count; ++index) {
            const Arguments arguments = splitAtColons(steps[index]);
            kVerbs.at(arguments.front())(arguments);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "manifest_probe: %s\n", error.what());
        return 1;
    }
    return 0;
}
