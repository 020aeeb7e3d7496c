#include "chain_arguments.h"

#include "chain/presets.h"

#include <map>

#include <CLI/CLI.hpp>

namespace vorn::hosts::cli {

void addChainOptions(CLI::App& command, ChainArguments& arguments) {
    const auto add = [&command](const char* name, const char* type,
                                std::vector<std::string>& values, const char* text) {
        return command.add_option(name, values, text)->allow_extra_args(false)->type_name(type);
    };
    std::map<const CLI::Option*, ChainArguments::Part> parts;
    parts[add("--filter", "NAME[:KEY=VALUE,...]", arguments.filters,
              "A filter, as `vorn list` names it, with its inputs;\nrepeat for a chain")] =
        &ChainArguments::filters;
    parts[add("--chain", "FILE", arguments.files,
              "The filters of a chain file, see `vorn help chain`")] = &ChainArguments::files;
    parts[add("--preset-chain", "NAME", arguments.presets,
              "The filters of a chain that comes with vorn, see\n`vorn list --presets`")] =
        &ChainArguments::presets;
    add("--image", "KEY=FILE[:fit=...]", arguments.images,
        "A second image: a picture, a film that runs in step,\nor test:; behind it "
        "fit=cover|contain|stretch|none,\nat=center|top|bottom-left|..., scale=FACTOR");
    add("--animate", "KEY=TIME:VALUE,...", arguments.animations,
        "An input that moves from value to value, or a formula\nof the time");
    add("--during", "N=START-END", arguments.ranges,
        "When the Nth filter works, in seconds or HH:MM:SS");
    add("--mask", "N=FILE|SHAPE", arguments.masks,
        "Where the Nth filter works: a picture, ellipse(x,y,w,h,\nsoft) or rectangle(...); behind "
        "it channel=alpha,\ninvert=yes, fit=...");
    command.parse_complete_callback([&command, &arguments, parts] {
        arguments.order.clear();
        for (const CLI::Option* option : command.parse_order())
            if (const auto part = parts.find(option); part != parts.end())
                arguments.order.push_back(part->second);
    });
}

ChainPlan readChainPlan(const ChainArguments& arguments, ChainWords* words) {
    ChainPlan plan;
    size_t filters = 0, files = 0, presets = 0;
    ChainWords told;
    for (const ChainArguments::Part part : arguments.order) {
        if (part == &ChainArguments::filters)
            plan.addFilter(arguments.filters[filters++]);
        else if (part == &ChainArguments::files)
            told = readChainFile(arguments.files[files++], plan);
        else
            told = readChainFile(findPreset(arguments.presets[presets++]).path, plan);
    }
    for (const std::string& text : arguments.images) plan.addImage(text);
    for (const std::string& text : arguments.animations) plan.addAnimation(text);
    for (const std::string& text : arguments.ranges) plan.addRange(text);
    for (const std::string& text : arguments.masks) plan.addMask(text);
    if (words) *words = told;
    return plan;
}

} // namespace vorn::hosts::cli
