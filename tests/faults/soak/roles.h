#pragma once

#include "faults/soak/session.h"

/** @file The processes of the soak. Each ends, with its exit status, when its standard input ends.
 */
namespace KELP::Test::Soak {

/** Creates, opens, changes and deletes reports as fast as it can. */
int work(const Place& place);

/**
 * Is the client of an observer, and tells the journal of all events. For the line "measure" on its
 * input it prints how many descriptors it has and how many KiB it occupies.
 */
int observe(const Place& place);

/** Lists, counts and reads reports. Measures itself as observe() does. */
int list(const Place& place);

/** Audits the journal, and reads reports under locks. Prints what is broken when it is
 * found, and a summary at the end. */
int check(const Place& place);

}  // namespace KELP::Test::Soak
