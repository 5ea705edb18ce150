#pragma once

#include "faults/soak/changes.h"

namespace KELP::Test::Soak {

/** From now on, SIGUSR1 dooms this process. */
void mayBeDoomed();

/**
 * Called when something is about to be changed: a process that is doomed is killed within some
 * hundred microseconds. From outside, a kill would nearly always come between two changes.
 */
void meetDoom(Chance& chance);

}  // namespace KELP::Test::Soak
