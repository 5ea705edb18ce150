#pragma once

#include <string>
#include <vector>

/** What the device's own stores note. */
namespace Device {

/** What the stores were asked, oldest first: "open NAME with OPTIONS", "ready" or "get KEY". */
extern std::vector<std::string> questions;

}  // namespace Device
