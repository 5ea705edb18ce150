// The store by itself: writes a few keys into the file that is named, and prints what they came to.
// The file that this makes is the worked example of docs/on-disk-format.md.

#include <os/keyvaluestore.h>

#include <iostream>

using KELP::OS::KeyValueStore;
using KELP::OS::KVStoreOpenOption;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: keyvaluestore FILE\n";
    return 2;
  }
  KeyValueStore store(argv[1], "example",
                      {KVStoreOpenOption::CreateIfMissing, KVStoreOpenOption::Shared});
  const bool written = store.set("app_id", "7") && store.set("description", "") &&
                       store.set("app_id", "42") && store.remove("description") &&
                       store.set("device_id", "unit \"A\"");
  if (!written) {
    std::cerr << "cannot write " << argv[1] << '\n';
    return 1;
  }
  for (const char* key : {"app_id", "description", "device_id"}) {
    if (const auto value = store.get(key)) {
      std::cout << key << '=' << *value << '\n';
    }
  }
}
