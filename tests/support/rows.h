// Rows of a file in tests/data: cells parted by tabs, in which - is nothing and \xNN a byte; a line
// that begins with # is a comment.
#pragma once

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

namespace test {

using row_cells = std::vector<std::string>;

inline std::string unescaped(const std::string& cell) {
    std::string text;
    for (std::size_t i = 0; i < cell.size() && cell != "-"; ++i) {
        const bool escaped = cell[i] == '\\';
        text +=
            escaped ? static_cast<char>(std::stoi(cell.substr(i + 2, 2), nullptr, 16)) : cell[i];
        i += escaped ? 3 : 0;
    }
    return text;
}

inline std::vector<row_cells> rows_of(const std::string& name, std::size_t cells) {
    std::ifstream file(PVZAN_SOURCE_DIR "/tests/data/" + name);
    std::vector<row_cells> rows;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream parts(line);
        row_cells& row = rows.emplace_back();
        for (std::string cell; std::getline(parts, cell, '\t');) {
            row.push_back(unescaped(cell));
        }
        EXPECT_EQ(row.size(), cells) << line;
        row.resize(cells);
    }
    EXPECT_GT(rows.size(), 15U) << name;
    return rows;
}

} // namespace test
