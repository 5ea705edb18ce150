#pragma once

#include <os/export.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// The kernel's own record of what happened, from <sys/inotify.h>, which callbacks include to read
// it.
struct inotify_event;

namespace KELP::OS {

/**
 * Tells of what happens to files and directories, by inotify, on a thread of its own.
 *
 * Life cycle:
 *  1. The constructor makes the inotify instance (one close-on-exec descriptor, and one to end by)
 *     and starts its threads. It never fails loudly: without an instance, addWatch() fails.
 *  2. addWatch() and rmWatch() come and go, from any thread and from inside callbacks.
 *  3. The destructor ends delivery, and with it all watches.
 *
 * What is promised:
 *  - Callbacks run on one thread, the observer's own, one at a time, in the order of the kernel,
 *    and with none of the observer's locks held.
 *  - A slow callback costs no events: while one runs, a second thread moves what the kernel has to
 *    tell into memory, where it may use as much as is there.
 *  - When the kernel's queue overflows all the same, each watch's callback gets one event with
 *    `IN_Q_OVERFLOW` (and the watch descriptor -1, as the kernel gives it), in its place among the
 *    others. What happened meanwhile is lost.
 *  - After the destructor has returned, no callback begins, and none is running but one that has
 *    called the destructor itself.
 *  - After rmWatch() has returned to a callback of this observer, none of the watch begins. When it
 *    was called elsewhere, one may still be running then, or begin, if it had been chosen to be the
 *    next before the call; no other does.
 *  - A callback may destroy the FileObserver. The thread then ends by itself after the callback has
 *    returned.
 *  - An exception that a callback lets out ends that callback alone, with the line "A callback of
 *    the file observer ended with an exception: %s" (or "... with an unknown exception") at error
 *    priority.
 *
 * Who destroys the object outside of a callback must not hold a lock that a callback waits for.
 *
 * The delivering thread has the signal mask of the thread that constructed the object; the other
 * takes no signals. A device may link its own implementation of this class instead.
 */
class KELP_EXPORT FileObserver {
 public:
  /** Called with the event, valid until it returns, and the user data of the watch. The event's
   *  name is that of the entry in a watched directory, or there is none (`len` is 0). */
  using Callback = std::function<void(inotify_event*, void*)>;

  /**
   * Makes the instance. When the system refuses, one line at error priority says why: "Unable to
   * observe files: %s", or the limit that is reached and how to raise it (`fs.inotify.
   * max_user_instances`, or the process's own number of descriptors).
   */
  FileObserver();

  /** Removes all watches, ends delivery and closes the instance. Waits for the callback that is
   *  running, unless called from inside it. */
  ~FileObserver();

  FileObserver(const FileObserver&) = delete;
  FileObserver& operator=(const FileObserver&) = delete;
  FileObserver(FileObserver&&) = delete;
  FileObserver& operator=(FileObserver&&) = delete;

  /**
   * Watches a file or a directory. A second watch on the same file (also by another path) replaces
   * the mask and the callback of the first, and has its descriptor.
   *
   * Besides what the mask asks for, the kernel tells of `IN_Q_OVERFLOW`, `IN_UNMOUNT` and
   * `IN_IGNORED`, the last event of a watch whose file is gone.
   *
   * @param path     what to watch; symbolic links are followed.
   * @param mask     the events, as inotify_add_watch(2) takes them.
   * @param callback called for each event.
   * @param userData passed to the callback as it is.
   * @return the watch descriptor, 1 or more; -1 on failure, with the reason in `errno`. All but the
   *         absence of the path (ENOENT, ENOTDIR) is logged at error priority, as "Unable to watch
   *         %s: %s"; that the limit `fs.inotify.max_user_watches` is reached, and how to raise it,
   *         is logged once for each FileObserver. Without an instance, and inside a callback while
   *         the destructor waits for it, it is EBADF, without a line.
   */
  int addWatch(std::string path, std::uint32_t mask, Callback callback, void* userData);

  /**
   * Ends a watch. What the kernel has told of it and was not delivered is dropped, but for one
   * event that another thread may just be about to deliver.
   *
   * @param wd what addWatch() returned.
   * @return false when there is no such watch, for example since its file is gone.
   */
  bool rmWatch(int wd);

 private:
  class KELP_HIDDEN Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace KELP::OS
