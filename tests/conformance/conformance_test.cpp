// SPDX-License-Identifier: Apache-2.0
// Runs the conformance vectors: every case of the files that the command line names is a test.
#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <sstream>

#include "tests/conformance/session.h"

extern "C" __attribute__((visibility("default"))) int rand() noexcept {
    using krel_test::g_random;
    ++g_random.draws;
    g_random.state = g_random.state * 1664525 + 1013904223;
    return static_cast<int>(g_random.state / 2);
}

namespace krel_test {
namespace {

class Case : public testing::Test {
  public:
    Case(const std::filesystem::path& file, std::string line) : line_(std::move(line)) {
        session_.folder = file.parent_path();
    }
    void TestBody() override {
        std::istringstream steps(line_);
        std::string name;
        std::string step;
        std::string failed;
        std::getline(steps, name, ';');
        g_random = {};
        for (int number = 1; std::getline(steps, step, ';'); ++number) {
            std::istringstream in(step);
            session_.step(std::vector<std::string>(std::istream_iterator<std::string>(in), {}));
            if (failed.empty() && !session_.failure.empty()) {
                failed = "step " + std::to_string(number) + "," + step.substr(0, 80) + ": " +
                         session_.failure;
            }
        }
        if (failed.empty() && !(session_.output.empty() && session_.values.empty()))
            failed = "the case ends with output that it does not compare";
        EXPECT_EQ(failed, "") << name;
    }

  private:
    Session session_;
    std::string line_;
};

/// Registers a file's cases; returns how many.
int add_cases(const std::filesystem::path& file) {
    std::ifstream in(file);
    int cases = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        ++cases;
        testing::RegisterTest(file.stem().c_str(), line.substr(0, line.find(';')).c_str(), nullptr,
                              nullptr, file.c_str(), cases,
                              [file, line]() -> testing::Test* { return new Case(file, line); });
    }
    return cases;
}

}  // namespace
}  // namespace krel_test

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        if (krel_test::add_cases(argv[i]) > 0) continue;
        std::cerr << argv[i] << ": no cases\n";
        return 2;
    }
    return RUN_ALL_TESTS();
}
