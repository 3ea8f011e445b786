#include "print.h"

#include <algorithm>
#include <cstdio>

namespace inspect {
namespace {

const std::string *AsText(const Cell &cell) {
    return std::get_if<std::string>(&cell);
}

std::string Plain(const Cell &cell) {
    if (const std::string *text = AsText(cell))
        return *text;
    const int64_t *number = std::get_if<int64_t>(&cell);
    if (std::holds_alternative<None>(cell))
        return "-";
    return number == nullptr ? "?" : std::to_string(*number);
}

// The bytes of the UTF-8 character at that place; 0 if there is none.
size_t CharacterAt(const std::string &text, size_t at) {
    const auto byte = [&](size_t i) {
        return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0U;
    };
    const unsigned first = byte(0);
    const unsigned second = byte(1);
    size_t size = 4;
    if (first < 0x80)
        size = 1;
    else if (first < 0xe0)
        size = 2;
    else if (first < 0xf0)
        size = 3;
    const bool too_long = (first >= 0x80 && first < 0xc2) || (first == 0xe0 && second < 0xa0) ||
                          (first == 0xf0 && second < 0x90);
    const bool no_character =
        (first == 0xed && second >= 0xa0) || (first == 0xf4 && second >= 0x90) || first > 0xf4;
    for (size_t i = 1; i < size; i++)
        if ((byte(i) & 0xc0) != 0x80)
            return 0;
    return too_long || no_character ? 0 : size;
}

// Calls `use` with each character, and with an empty one in place of each byte that is in none.
template <class Use>
void ForCharacters(const std::string &text, Use use) {
    for (size_t at = 0; at < text.size();) {
        const size_t size = CharacterAt(text, at);
        use(text.substr(at, size));
        at += std::max<size_t>(size, 1);
    }
}

// A name can hold anything: nothing of it reaches the terminal as a command.
std::string Printable(const std::string &text) {
    std::string printable;
    ForCharacters(text, [&](const std::string &character) {
        const bool control = character.empty() || static_cast<unsigned char>(character[0]) < ' ' ||
                             character[0] == 127 || (character >= "\xc2\x80" && character <= "\xc2\x9f");
        printable += control ? "?" : character;
    });
    return printable;
}

std::string Escaped(const std::string &text, bool json) {
    std::string escaped;
    ForCharacters(text, [&](const std::string &character) {
        if (character.size() != 1) {
            escaped += character.empty() ? "\xef\xbf\xbd" : character; // U+FFFD
            return;
        }
        const char letter = character[0];
        char code[8] = {letter, 0};
        if (letter == '"' || letter == '\\')
            (void)std::snprintf(code, sizeof code, "\\%c", letter);
        else if (letter == '\n')
            (void)std::snprintf(code, sizeof code, "\\n");
        else if (static_cast<unsigned char>(letter) < ' ' && json)
            (void)std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(letter));
        escaped += code;
    });
    return '"' + escaped + '"';
}

std::string Json(const Cell &cell) {
    if (const std::string *text = AsText(cell))
        return Escaped(*text, true);
    return std::holds_alternative<int64_t>(cell) ? Plain(cell) : "null";
}

std::string JsonRow(const Table &table, const std::vector<Cell> &row) {
    std::string text = "{";
    for (size_t i = 0; i < table.columns.size(); i++)
        text += (i == 0 ? "\"" : ", \"") + std::string(table.columns[i].key) + "\": " + Json(row[i]);
    return text + "}";
}

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char letter) {
        return letter == '_'                    ? ' '
               : letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A')
                                                : letter;
    });
    return text;
}

// One below the other, for a table with one row.
std::string ListText(const Table &table) {
    std::string text;
    for (size_t i = 0; i < table.columns.size(); i++) {
        std::string key = table.columns[i].key;
        std::replace(key.begin(), key.end(), '_', ' ');
        text += "  " + key + std::string(12 - std::min<size_t>(11, key.size()), ' ') +
                Printable(Plain(table.rows[0][i])) + "\n";
    }
    return text;
}

std::string TableText(const Table &table) {
    std::vector<std::vector<std::string>> lines(1);
    for (const Column &column : table.columns)
        lines[0].push_back(Upper(column.key));
    for (const auto &row : table.rows) {
        lines.emplace_back();
        for (const Cell &cell : row)
            lines.back().push_back(Printable(Plain(cell)));
    }
    std::string text;
    for (size_t line = 0; line < lines.size(); line++) {
        std::string row = " ";
        for (size_t i = 0; i < table.columns.size(); i++) {
            size_t width = 0;
            for (const auto &other : lines)
                width = std::max(width, other[i].size());
            const std::string gap(width - lines[line][i].size(), ' ');
            const bool number = line > 0 ? !AsText(table.rows[line - 1][i])
                                         : !table.rows.empty() && !AsText(table.rows[0][i]);
            row += " " + (number ? gap + lines[line][i] : lines[line][i] + gap);
        }
        text += row.substr(0, row.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

struct MetricOf {
    const Table &table;
    size_t column;
    [[nodiscard]] bool IsCounter() const { return table.columns[column].metric == Metric::Counter; }
    [[nodiscard]] std::string Name() const {
        return std::string("vyx_") + table.item + "_" + table.columns[column].key +
               (IsCounter() ? "_total" : "");
    }
};

std::string Labels(const Report &report, const Table &table, const std::vector<Cell> &row) {
    std::string text = "{process=\"" + std::to_string(report.number) + '"';
    for (size_t i = 0; i < table.columns.size(); i++)
        if (table.columns[i].metric == Metric::Label)
            text += std::string(",") + table.columns[i].key + "=" + Escaped(Plain(row[i]), false);
    return text + "}";
}

// All processes have the same tables in the same order.
std::string MetricText(const std::vector<Report> &reports, size_t table, size_t column) {
    const MetricOf metric = {reports[0].tables[table], column};
    std::string samples;
    for (const Report &report : reports)
        for (const auto &row : report.tables[table].rows)
            if (std::holds_alternative<int64_t>(row[column]))
                samples += metric.Name() + Labels(report, report.tables[table], row) + " " +
                           Plain(row[column]) + "\n";
    if (samples.empty())
        return "";
    return "# HELP " + metric.Name() + " " + metric.table.columns[column].help + ".\n# TYPE " +
           metric.Name() + (metric.IsCounter() ? " counter\n" : " gauge\n") + samples;
}

} // namespace

std::string ToText(const Report &report) {
    std::string text = Printable(report.name + ": " + report.program) + "\n";
    for (const Table &table : report.tables) {
        if (table.rows.empty() && table.complete)
            continue;
        std::string title = table.key;
        std::replace(title.begin(), title.end(), '_', ' ');
        text += "\n" + title + (table.single ? "" : ": " + std::to_string(table.rows.size())) +
                (table.complete ? "" : " seen twice; there may be more, the list changed while it was read") +
                "\n" + (table.single ? ListText(table) : TableText(table));
    }
    return text;
}

std::string ToJson(const std::vector<Report> &reports) {
    std::string text = "[";
    for (const Report &report : reports) {
        text += (&report == &reports[0] ? "\n" : ",\n") + std::string("{\"process\": ") +
                (report.number == 0 ? "null" : std::to_string(report.number)) +
                ", \"program\": " + Escaped(report.program, true) +
                ", \"library_file\": " + Escaped(report.library, true);
        std::string incomplete;
        for (const Table &table : report.tables) {
            text += ",\n \"" + std::string(table.key) + "\": " + (table.single ? "" : "[");
            for (size_t i = 0; i < table.rows.size(); i++)
                text += (i == 0 ? "" : ",\n  ") + JsonRow(table, table.rows[i]);
            text += table.single ? "" : "]";
            if (!table.complete)
                incomplete += (incomplete.empty() ? "\"" : ", \"") + std::string(table.key) + "\"";
        }
        text += ",\n \"incomplete\": [" + incomplete + "]}";
    }
    return text + "\n]\n";
}

std::string ToPrometheus(const std::vector<Report> &reports) {
    std::string text;
    for (size_t table = 0; !reports.empty() && table < reports[0].tables.size(); table++)
        for (size_t column = 0; column < reports[0].tables[table].columns.size(); column++) {
            const Metric metric = reports[0].tables[table].columns[column].metric;
            if (metric == Metric::Gauge || metric == Metric::Counter)
                text += MetricText(reports, table, column);
        }
    return text;
}

} // namespace inspect
