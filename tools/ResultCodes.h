// What the driver's result codes mean to someone at the panel. The table is also the one in
// docs/result-codes.md (krv-sim --codes prints it; a test compares the two).
#pragma once

#include <ostream>
#include <string>

namespace krv_sim {

// One line of text for a slot's or command's result code.
std::string resultMeaning(int code);

// The whole table as Markdown rows: code, meaning, what to do.
void printResultCodeTable(std::ostream& out);

}  // namespace krv_sim
