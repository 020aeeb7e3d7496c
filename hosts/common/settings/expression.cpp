#include "expression.h"

#include "catalogue/suggest.h"
#include "host_error.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include <fmt/format.h>
#include <muParser.h>

namespace vorn::hosts {

namespace {

/// A number from 0 to 1 for each whole number, the same on every machine.
double lot(double whole) {
    auto bits = static_cast<std::uint64_t>(static_cast<std::int64_t>(whole));
    bits += 0x9e3779b97f4a7c15U; // SplitMix64
    bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9U;
    bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebU;
    return static_cast<double>((bits ^ (bits >> 31)) >> 11) * 0x1p-53;
}

/// Lots with smooth ways between them.
double noise(double x) {
    constexpr double most = 1e15; // where fractions end
    if (!(std::fabs(x) < most)) return std::nan("");
    const double whole = std::floor(x), share = x - whole;
    return std::lerp(lot(whole), lot(whole + 1), share * share * (3 - 2 * share));
}

double remainder(double x, double by) {
    return x - by * std::floor(x / by);
}

double clamped(double x, double least, double most) {
    return std::min(std::max(x, least), most);
}

/// Assigning is part of the parser's language, but no formula.
bool assigns(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '=') continue;
        const bool isComparison =
            (i > 0 && std::string_view("=<>!").find(text[i - 1]) != std::string_view::npos) ||
            (i + 1 < text.size() && text[i + 1] == '=');
        if (!isComparison) return true;
    }
    return false;
}

[[noreturn]] void refuse(std::string_view where, std::string_view text, std::string_view problem) {
    throw HostError(ExitCode::Usage,
                    fmt::format("{}: \"{}\" is no formula of t: {}", where, text, problem));
}

std::string problemOf(const mu::Parser& parser, const mu::Parser::exception_type& error) {
    std::string problem = error.GetMsg();
    while (problem.ends_with('.')) problem.pop_back();
    std::vector<std::string> names{"t", "pi"};
    for (const auto& [name, function] : parser.GetFunDef()) names.push_back(name);
    const bool isName =
        !error.GetToken().empty() && std::isalpha(static_cast<unsigned char>(error.GetToken()[0]));
    return problem + (isName ? suggestion(error.GetToken(), names) : "");
}

} // namespace

struct Expression::State {
    std::string text, where;
    double seconds = 0;
    mu::Parser parser;
};

Expression::Expression(std::string_view text, std::string_view where)
    : state_(std::make_shared<State>()) {
    constexpr size_t most = 1000;
    if (text.size() > most)
        refuse(where, text.substr(0, 20), fmt::format("it has more than {} letters", most));
    if (assigns(text)) refuse(where, text, "\"=\" sets nothing here; \"==\" compares");
    state_->text = text;
    state_->where = where;
    mu::Parser& parser = state_->parser;
    try {
        parser.DefineVar("t", &state_->seconds);
        parser.DefineConst("pi", std::numbers::pi);
        parser.DefineFun("noise", noise);
        parser.DefineFun("mod", remainder);
        parser.DefineFun("clamp", clamped);
        parser.DefineFun("floor", static_cast<double (*)(double)>(std::floor));
        parser.SetExpr(state_->text);
        parser.Eval();
    } catch (const mu::Parser::exception_type& error) {
        refuse(where, text, problemOf(parser, error));
    }
    if (parser.GetNumResults() != 1) refuse(where, text, "a comma parts it into several");
}

double Expression::at(double seconds) const {
    state_->seconds = seconds;
    std::string problem = "is no number";
    try {
        const double value = state_->parser.Eval();
        if (std::isfinite(value)) return value;
        if (!std::isnan(value)) problem = "is infinite";
    } catch (const mu::Parser::exception_type& error) {
        problem = "fails: " + error.GetMsg();
    }
    throw HostError(ExitCode::Failed, fmt::format("{}: \"{}\" {} at t = {:.6g}", state_->where,
                                                  state_->text, problem, seconds));
}

const std::string& Expression::text() const {
    return state_->text;
}

bool Expression::isLikely(std::string_view text) {
    return text == "t" || text.find_first_of("+-*/^()<>?") != std::string_view::npos;
}

} // namespace vorn::hosts
