// What the driver's result codes mean to someone at the panel.
#pragma once

#include <string>

namespace krv_sim {

// One line of text for a slot's or command's result code.
std::string resultMeaning(int code);

}  // namespace krv_sim
