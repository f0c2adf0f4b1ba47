// Sets of numbers in, lines of numbers out.
#include "tools/Numbers.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <iostream>

#include "tools/Console.h"

namespace tarn_tool {

namespace {

bool IsSeparator(char c) {
  return c == ' ' || c == '\t' || c == ',' || c == '\r';
}

bool IsPassedOver(const std::string& line) {
  const size_t first = line.find_first_not_of(" \t\r");
  return first == std::string::npos || line[first] == '#';
}

/// Numbers that are to be answered together.
struct NumberSet {
  unsigned long line;  // of standard input, where it begins
  std::vector<double> numbers;
};

/// The sets of standard input, right ones or not.
class SetReader {
 public:
  explicit SetReader(size_t count) : count_(count) {}

  /// Nothing at the end.
  std::optional<NumberSet> Next() {
    NumberSet set{};
    while (set.numbers.size() < count_ && HaveLine()) {
      const std::vector<double> numbers = ReadNumbers(line_).value_or(std::vector<double>{});
      const bool single = numbers.size() == 1;
      // A whole line ends a set that lacks numbers, and is the next one.
      if (!single && !set.numbers.empty()) break;
      haveLine_ = false;
      if (!single) return NumberSet{lineNumber_, numbers};
      if (set.numbers.empty()) set.line = lineNumber_;
      set.numbers.push_back(numbers.front());
    }
    if (set.numbers.empty()) return std::nullopt;
    return set;
  }

 private:
  bool HaveLine() {
    while (!haveLine_ && std::getline(std::cin, line_)) {
      ++lineNumber_;
      haveLine_ = !IsPassedOver(line_);
    }
    return haveLine_;
  }

  const size_t count_;
  std::string line_;
  unsigned long lineNumber_ = 0;
  bool haveLine_ = false;
};

bool AnswerSet(const std::vector<double>& numbers, const Answer& answer) {
  const std::optional<std::string> line = answer(numbers);
  if (line) puts(line->c_str());
  return line.has_value();
}

}  // namespace

std::string NumberText(double value, int digits, bool exact) {
  std::array<char, 400> text{};  // the largest double has 309 digits before the point
  char* const end = text.data() + text.size();
  const auto done = exact
                        ? std::to_chars(text.data(), end, value)
                        : std::to_chars(text.data(), end, value, std::chars_format::fixed, digits);
  return std::string(text.data(), done.ptr);
}

std::optional<std::vector<double>> ReadNumbers(const std::string& line) {
  std::vector<double> numbers;
  const char* at = line.data();
  const char* const end = at + line.size();
  while (true) {
    while (at != end && IsSeparator(*at))
      ++at;
    if (at == end) return numbers;
    double number = 0;
    if (*at == '+' && at + 1 != end && at[1] != '-') ++at;
    const auto read = std::from_chars(at, end, number);
    if (read.ec != std::errc() || (read.ptr != end && !IsSeparator(*read.ptr))) return std::nullopt;
    numbers.push_back(number);
    at = read.ptr;
  }
}

int AnswerNumbers(const std::vector<double>& numbers, const std::string& wanted, size_t count,
                  const Answer& answer) {
  bool right = true;
  if (!numbers.empty()) {
    right = AnswerSet(numbers, answer);
    if (!right) Complain("wants %s", wanted.c_str());
    return !right ? 2 : fflush(stdout) == 0 ? 0 : 1;
  }
  SetReader reader(count);
  while (const std::optional<NumberSet> set = reader.Next()) {
    if (AnswerSet(set->numbers, answer)) continue;
    Complain("line %lu: wants %s", set->line, wanted.c_str());
    right = false;
  }
  return fflush(stdout) == 0 && right ? 0 : 1;
}

void AddCalculationOptions(CLI::App& verb, CalculationOptions& options, const std::string& wanted) {
  verb.add_flag("--exact", options.exact, "All digits of the results");
  verb.add_option("NUMBERS", options.numbers,
                  wanted + "; without any, sets from standard input, one set or one number a line");
}

}  // namespace tarn_tool
