#include "Output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <nlohmann/json.hpp>

#include <chronal/Helpers.h>
#include <fabric-host/Printable.h>

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

Json jsonTime(const nubOsalTime_struct& time, const std::string& text)
{
    return {{"seconds", time.seconds}, {"microseconds", time.microseconds}, {"text", text}};
}

Json jsonOf(const Field& field)
{
    return std::visit(
        Overloaded{[](bool value) { return Json(value); },
                   [](std::int64_t value) { return Json(value); },
                   [](const std::string& value) { return Json(value); },
                   [&](const Time& time) { return jsonTime(time.value, textOf(field)); },
                   [&](const Span& span) { return jsonTime(span.value, textOf(field)); }},
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

Row refusedRow(const std::string& label, const Report& refused)
{
    return {label, "refused: " + numberText(refused.result)};
}

Row sourceRow(const Status::Source& source)
{
    const Report& report = source.report;
    if (report.result < 0)
        return refusedRow(source.name, report);
    if (!std::get<bool>(report.field("valid").value))
        return {source.name, "has no time"};
    return {source.name, textOf(report.field("utc")), textOf(report.field("local")),
            textOf(report.field("deviation"))};
}

std::string nextChange(const Report& next)
{
    const auto& deviation = std::get<Span>(next.field("deviation").value).value;
    if (nubOsalCompareTime(&deviation, &chronal::Helpers::deviationInvalid) == 0)
        return "none";
    return textOf(next.field("deviation")) + " from UTC " + textOf(next.field("utc")) + " on";
}

std::vector<Row> settingsRows(const Report& settings)
{
    if (settings.result < 0)
        return {refusedRow("settings", settings)};
    std::vector<Row> rows;
    for (const char* name : {"automatic_time", "ntp_server", "ntp_used", "zone_sync"}) {
        const Field& field = settings.field(name);
        rows.push_back({labelOf(field), textOf(field)});
    }
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
    const Report& zone = status.timezone;
    const Report& next = status.nextDeviation;
    std::vector<Row> sources = {{"source", "UTC", "local", "deviation"}};
    std::transform(status.sources.begin(), status.sources.end(), std::back_inserter(sources),
                   sourceRow);
    std::vector<Row> rest = settingsRows(status.settings);
    rest.insert(
        rest.begin(),
        {zone.result < 0 ? refusedRow("zone", zone) : Row{"zone", textOf(zone.field("zone"))},
         next.result < 0 ? refusedRow("next change", next) : Row{"next change", nextChange(next)}});
    return aligned(sources) + '\n' + aligned(rest);
}

std::string asJson(const Status& status)
{
    Json sources = Json::array();
    for (const Status::Source& source : status.sources) {
        Json fields = {{"source", source.name}};
        fields.update(jsonFields(source.report));
        sources.push_back(fields);
    }
    return jsonLine({{"answer", "status"},
                     {"sources", sources},
                     {"timezone", jsonFields(status.timezone)},
                     {"next_deviation", jsonFields(status.nextDeviation)},
                     {"settings", jsonFields(status.settings)}});
}

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
