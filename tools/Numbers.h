// Verbs that calculate: a set of numbers from the command line, or sets from standard input, each
// answered by one line.
#ifndef TARN_TOOLS_NUMBERS_H
#define TARN_TOOLS_NUMBERS_H

#include <CLI/CLI.hpp>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarn_tool {

/// A result as text: so many digits behind the point, or, when `exact`, as few as tell the number
/// from every other one. Never depends on the locale.
std::string NumberText(double value, int digits, bool exact);

/// The numbers of a line, between blanks or commas; nothing when something else stands there.
std::optional<std::vector<double>> ReadNumbers(const std::string& line);

/// What a calculating verb does with a set of numbers: the answer's line; nothing when the set is
/// not right, then a complaint follows.
using Answer = std::function<std::optional<std::string>(const std::vector<double>& numbers)>;

/// Answers `numbers`, or, when there are none, every set of standard input: a line with all its
/// numbers, or lines with one number each. Blank lines and those that begin with # are passed over.
/// A set that is not right is complained about by its first line and the others are done.
/// @param wanted  names of the numbers, for complaints
/// @param count  how many numbers a set has, two at least
/// @return the exit status: 0, 1 when something was not right, 2 when that was the command line
int AnswerNumbers(const std::vector<double>& numbers, const std::string& wanted, size_t count,
                  const Answer& answer);

/// What every calculating verb takes from the command line.
struct CalculationOptions {
  bool exact = false;
  std::vector<double> numbers;
};

/// Adds the numbers and --exact to a verb.
void AddCalculationOptions(CLI::App& verb, CalculationOptions& options, const std::string& wanted);

}  // namespace tarn_tool

#endif  // TARN_TOOLS_NUMBERS_H
