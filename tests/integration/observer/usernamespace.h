#pragma once

#include <functional>
#include <string>

namespace KELP::Test {

/**
 * Runs the body of the current test in a process of its own that is root in a user namespace of its
 * own, so that it may set the limits that the system has for each user. Skips the test, with the
 * reason, where the system forbids that. What fails there fails here.
 */
void inOwnUserNamespace(const std::function<void()>& body);

/** Sets a limit in the namespace: `max_inotify_watches` or `max_inotify_instances`. */
void setUserLimit(const std::string& name, int value);

}  // namespace KELP::Test
