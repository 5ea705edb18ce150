// A device's own file observer behind the library's header: one that never has anything to tell.

#include <os/fileobserver.h>

#include <set>

namespace KELP::OS {

class FileObserver::Impl {
 public:
  std::set<int> watches;
  int last = 0;
};

FileObserver::FileObserver() : impl_(std::make_shared<Impl>()) {}

FileObserver::~FileObserver() = default;

int FileObserver::addWatch(std::string /*path*/, std::uint32_t /*mask*/, Callback /*callback*/,
                           void* /*userData*/) {
  impl_->watches.insert(++impl_->last);
  return impl_->last;
}

bool FileObserver::rmWatch(int wd) {
  return impl_->watches.erase(wd) != 0;
}

}  // namespace KELP::OS
