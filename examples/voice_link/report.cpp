#include "report.h"

#include "cvsd_qor.h"
#include "file.h"

#include <cmath>
#include <cstdarg>

#define TEXT_OF(x) #x
#define TEXT(x) TEXT_OF(x)

std::string version() {
    return TEXT(CVSD_QOR_VERSION_MAJOR) "." TEXT(CVSD_QOR_VERSION_MINOR) "." TEXT(CVSD_QOR_VERSION_PATCH);
}

Record record_of(const char *command, const std::string &input, const std::string &output) {
    return {{"version", version()}, {"command", command}, {"input", input}, {"output", output}};
}

std::string printed(const char *format, ...) {
    std::va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, arguments)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    return text;
}

std::string time_line(double duration, double seconds, double library_seconds) {
    return printed(
        "time: %.2f s, %.0f times real time; the library's share of it %.2f s, %.0f times real time\n",
        seconds, duration / seconds, library_seconds, duration / library_seconds);
}

namespace {

std::string csv_field(const Record &value) {
    if (value.is_null()) return "";
    if (value.is_number_float() && !std::isfinite(value.get<double>())) return "";
    if (!value.is_string()) return value.dump();
    std::string quoted = "\"";
    for (const char c : value.get<std::string>()) quoted += c == '"' ? "\"\"" : std::string(1, c);
    return quoted + "\"";
}

std::string line_of(const std::vector<std::string> &fields) {
    std::string line;
    for (const std::string &field : fields) line += (line.empty() ? "" : ",") + field;
    return line + "\n";
}

} // namespace

std::string csv(const std::vector<Report> &reports) {
    std::string text;
    for (const Report &report : reports) {
        if (report.record.is_null()) continue;
        std::vector<std::string> names, values;
        for (const auto &[name, value] : report.record.items()) {
            names.push_back(name);
            values.push_back(csv_field(value));
        }
        text += (text.empty() ? line_of(names) : "") + line_of(values);
    }
    return text;
}

void put(const std::string &text, std::FILE *to) {
    if (std::fputs(text.c_str(), to) < 0 || std::fflush(to) != 0) {
        fail(to == stderr ? "standard error" : "standard output", "cannot write");
    }
}

void print(const std::vector<Report> &reports, const std::string &format, const std::string &output) {
    std::string text;
    Record records = Record::array();
    for (const Report &report : reports) {
        if (report.record.is_null()) continue;
        text += report.text;
        records.push_back(report.record);
    }
    if (format == "csv") text = csv(reports);
    // File names may hold any bytes.
    if (format == "json") text = records.dump(2, ' ', false, Record::error_handler_t::replace) + "\n";
    put(text, output == "-" ? stderr : stdout);
}
