#pragma once

#include <cctype>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

namespace vantelo_sounds::test {

/// The first field of a row in a parameter table, written {"name", field, ...}: the end of the
/// test's name, and what gtest prints for the row instead of its bytes.
struct NamedCase {
    NamedCase(const char* caseName)
        : name(caseName) {}
    const char* name;

    friend std::ostream& operator<<(std::ostream& os, const NamedCase& row) {
        return os << row.name;
    }
};

/// INSTANTIATE_TEST_SUITE_P's name generator over NamedCase rows: the name with every character
/// but letters and digits made '_'.
struct CaseName {
    template <typename Row>
    std::string operator()(const ::testing::TestParamInfo<Row>& info) const {
        std::string name = info.param.name;
        for (char& c : name) {
            c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
        }
        return name;
    }
};

} // namespace vantelo_sounds::test
