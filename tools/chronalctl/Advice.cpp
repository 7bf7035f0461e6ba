#include "Advice.h"

#include <string_view>

namespace chronal::ctl {

namespace {

/// `text` with the arguments in place of their names in braces.
std::string expanded(std::string_view text, const Arguments& given)
{
    std::string result;
    for (auto open = text.find('{'); open != std::string_view::npos; open = text.find('{')) {
        const auto close = text.find('}', open);
        result += text.substr(0, open);
        result += given.texts.at(std::string(text.substr(open + 1, close - open - 1)));
        text.remove_prefix(close + 1);
    }
    return result.append(text);
}

} // namespace

std::string probableCause(const std::vector<Advice>& advice, int result, const Arguments& given)
{
    for (const Advice& candidate : advice)
        if (-candidate.error == result && (!candidate.applies || candidate.applies(given)))
            return "Probably " + expanded(candidate.text, given);
    return "";
}

} // namespace chronal::ctl
