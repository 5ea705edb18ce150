#pragma once

#include <string>
#include <vector>

/** What the device's own stores note, and what they are told. */
namespace Device {

/** What the stores were asked, oldest first: "open NAME with OPTIONS", "ready" or "get KEY". */
extern std::vector<std::string> questions;
/** What every store answers when it is asked whether it is ready; it holds its keys all the same.
 */
extern bool storesAreReady;

}  // namespace Device
