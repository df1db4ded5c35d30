// The kernel's mount table. Accounts choose names of mount points (FUSE, user namespaces), so its
// bytes do not come only from the kernel. The first line is the prefix, the second an account.
#include <stdexcept>

#include "fs/mount_table.h"
#include "input.h"
#include "util/runtime_directory.h"

namespace {

void requireFirstOfItsPoint(const MountTable& table, const MountEntry& entry) {
    const MountEntry& found = table.get(entry.mountPoint());
    demand(table.contains(entry.mountPoint()), "a mount point of the table is in it");
    demand(found.mountPoint() == entry.mountPoint(), "the mount point that was asked for");
    for (const MountEntry& earlier : table) {
        if (earlier.mountPoint() == entry.mountPoint()) {
            demand(&earlier == &found, "the lowest of stacked mounts");
            return;
        }
    }
}

void requireRefusal(const MountTable& table, const std::string& mountPoint) {
    try {
        table.get(mountPoint);
    } catch (const std::out_of_range&) {
        return;
    }
    demand(table.contains(mountPoint), "what is not contained cannot be got");
}

void checkNamespaces(const MountTable& table, const std::string& account) {
    for (const std::string kind : {"net", "ipc", "mnt"}) {
        const std::string path = runtimeDirectory + "/" + account + "@" + kind;
        if (checkNamespaceMount(account, table, kind)) {
            demand(table.get(path).root().starts_with(kind + ":"), "a namespace of its kind");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::string prefix = input.take('\n');
    const std::string account = input.take('\n');
    const InputFile file(input.all());
    MountTable table;
    readMountTable(table, prefix, file.path());
    for (const MountEntry& entry : table) {
        demand(entry.mountPoint().starts_with(prefix), "the prefix");
        demand(!entry.root().empty(), "a root");
        requireFirstOfItsPoint(table, entry);
    }
    requireRefusal(table, account);
    checkNamespaces(table, account);
    return 0;
}
