#include "Output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <nlohmann/json.hpp>

#include <chronal/Helpers.h>
#include <fabric-host/Printable.h>

#include "TimeText.h"

namespace chronal::ctl {

namespace {

using chronal::Helpers::getTimeSpanStr;
using chronal::Helpers::getTimeStr;
using Json = nlohmann::ordered_json;

/// A visitor made of lambdas, one for each alternative of a variant.
template <class... Functions>
struct Overloaded : Functions...
{
    using Functions::operator()...;
};
template <class... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

std::string textOf(const Field& field)
{
    return std::visit(Overloaded{[](bool value) { return std::string(value ? "yes" : "no"); },
                                 [](std::int64_t value) { return std::to_string(value); },
                                 [](const std::string& value) {
                                     return value.empty() ? "\"\""
                                                          : fabric::host::printable(value, "\\");
                                 },
                                 [](const Time& time) { return getTimeStr(time.value); },
                                 [](const Span& span) { return getTimeSpanStr(span.value); }},
                      field.value);
}

std::string labelOf(const Field& field)
{
    std::string label = field.name;
    std::replace(label.begin(), label.end(), '_', ' ');
    return label;
}

Json isoTime(const nubOsalTime_struct& time, bool isLocal)
{
    const std::string text = tools::formatUtc(time);
    return text.find('-') == 4 ? Json(text.substr(0, text.size() - (isLocal ? 1 : 0))) : Json();
}

Json isoSpan(nubOsalTime_struct span)
{
    const char sign = chronal::Helpers::isNegativeTimeSpan(span) ? '-' : '+';
    chronal::Helpers::absTimeSpan(&span);
    const auto seconds = static_cast<int>(span.seconds);
    char text[30];
    if (span.seconds < 0 || span.seconds > 86400)
        return nullptr;
    if (seconds % 60 != 0 || span.microseconds != 0)
        std::snprintf(text, sizeof(text), "%cPT%d.%06dS", sign, seconds, span.microseconds);
    else
        std::snprintf(text, sizeof(text), "%c%02d:%02d", sign, seconds / 3600, seconds / 60 % 60);
    return text;
}

Json jsonOf(const Field& field)
{
    const auto timeWith = [&](const nubOsalTime_struct& time, const Json& iso) {
        return Json{{"seconds", time.seconds},
                    {"microseconds", time.microseconds},
                    {"text", textOf(field)},
                    {"iso", iso}};
    };
    const bool isLocal = std::strcmp(field.name, "local") == 0;
    return std::visit(
        Overloaded{[](const auto& value) { return Json(value); },
                   [&](const Time& t) { return timeWith(t.value, isoTime(t.value, isLocal)); },
                   [&](const Span& t) { return timeWith(t.value, isoSpan(t.value)); }},
        field.value);
}

Json jsonFields(const Report& report)
{
    if (report.result < 0)
        return {{"refused", report.result}};
    Json object = Json::object();
    for (const Field& field : report.fields)
        object[field.name] = jsonOf(field);
    return object;
}

/// Pure ASCII, because the reader may be a terminal. Bytes that are not UTF-8 are replaced.
std::string jsonLine(const Json& json)
{
    return json.dump(-1, ' ', true, Json::error_handler_t::replace) + '\n';
}

std::string padded(std::string text, std::size_t width)
{
    text.resize(std::max(width, text.size()) + 2, ' ');
    return text;
}

using Row = std::vector<std::string>; // of cells

/// Rows in aligned columns.
std::string aligned(const std::vector<Row>& rows)
{
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    }
    std::string text;
    for (const auto& row : rows) {
        for (std::size_t column = 0; column + 1 < row.size(); ++column)
            text += padded(row[column], widths[column]);
        text += row.back() + '\n';
    }
    return text;
}

constexpr char noChange[] = "none";

std::string nextChange(const Report& next)
{
    const auto& deviation = std::get<Span>(next.field("deviation").value).value;
    if (nubOsalCompareTime(&deviation, &chronal::Helpers::deviationInvalid) == 0)
        return noChange;
    return textOf(next.field("deviation")) + " from UTC " + textOf(next.field("utc")) + " on";
}

std::vector<Row> rowsOf(const std::string& label, const Report& report)
{
    const std::string_view name = report.name;
    if (report.result < 0)
        return {{label, "refused: " + numberText(report.result)}};
    if (name == "timezone")
        return {{label, textOf(report.field("zone"))}};
    if (name == "next-deviation")
        return {{label, nextChange(report)}};
    if (name == "ref-time" && !std::get<bool>(report.field("valid").value))
        return {{label, "has no time"}};
    if (name == "ref-time")
        return {{label, textOf(report.field("utc")), textOf(report.field("local")),
                 textOf(report.field("deviation"))}};
    std::vector<Row> rows;
    for (const char* setting : {"automatic_time", "ntp_server", "ntp_used", "zone_sync"})
        rows.push_back({labelOf(report.field(setting)), textOf(report.field(setting))});
    return rows;
}

} // namespace

std::string asTable(const Report& report)
{
    if (std::strcmp(report.name, "result") == 0)
        return "done\n";
    std::vector<Row> rows;
    for (const Field& field : report.fields)
        rows.push_back({labelOf(field), textOf(field)});
    if (std::strcmp(report.name, "next-deviation") == 0 && nextChange(report) == noChange)
        rows = {rows.front(), {"next change", noChange}};
    return aligned(rows);
}

std::string asLine(const Report& report)
{
    std::string line = report.name;
    for (const Field& field : report.fields)
        line += "  " + labelOf(field) + ' ' + textOf(field);
    return line + '\n';
}

std::string asJson(const Report& report)
{
    Json object = {{report.kind, report.name}};
    object.update(jsonFields(report));
    return jsonLine(object);
}

std::string asTable(const Status& status)
{
    std::vector<Row> sources = {{"source", "UTC", "local", "deviation"}}, rest;
    for (const Part& part : status)
        for (const Row& row : rowsOf(part.label, part.report))
            (part.key == "sources" ? sources : rest).push_back(row);
    return aligned(sources) + '\n' + aligned(rest);
}

std::string asJson(const Status& status)
{
    Json object = {{"answer", "status"}, {"sources", Json::array()}};
    for (const Part& part : status) {
        if (part.key != "sources") {
            object[part.key] = jsonFields(part.report);
            continue;
        }
        object["sources"].push_back({{"source", part.label}});
        object["sources"].back().update(jsonFields(part.report));
    }
    return jsonLine(object);
}

std::string asJson(const std::set<std::string>& texts) { return jsonLine(texts); }

std::string asJson(const std::string& command, const Failure& failure)
{
    return jsonLine({{"command", command},
                     {"error",
                      {{"status", static_cast<int>(failure.status)},
                       {"number", failure.number},
                       {"text", failure.what()},
                       {"advice", failure.advice}}}});
}

void print(const std::string& text)
{
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (!written || std::fflush(stdout) != 0)
        throw notPrinted(errno);
}

} // namespace chronal::ctl
