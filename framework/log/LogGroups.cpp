#include "framework/log/LogGroups.h"

#include <atomic>

namespace Orvan::Framework {

namespace {

// A name packed into one word (three characters, the rest zero) so that
// entries can be written and read without a lock.
constexpr uint32_t Pack(std::string_view name) {
    uint32_t packed = 0;
    for (size_t i = 0; i < name.size() && i < 3; ++i) {
        packed |= static_cast<uint32_t>(static_cast<unsigned char>(name[i])) << (8 * i);
    }
    return packed;
}

constexpr uint32_t kUnused = Pack("???");
constexpr unsigned kPresetCount = 8;

struct GroupTable {
    std::atomic<uint32_t> names[kLogGroupCount];
    // The last index in use.
    std::atomic<unsigned> last{kPresetCount - 1};

    constexpr GroupTable()
        : names{Pack("DBG"), Pack("GEN"), Pack("XTR"), Pack("PRF"), Pack("MEM"), Pack("DSK"),
                Pack("NET"), Pack("TST"), kUnused,     kUnused,     kUnused,     kUnused,
                kUnused,     kUnused,     kUnused,     kUnused,     kUnused,     kUnused,
                kUnused,     kUnused,     kUnused,     kUnused,     kUnused,     kUnused,
                kUnused,     kUnused,     kUnused,     kUnused,     kUnused,     kUnused,
                kUnused,     kUnused,     kUnused,     kUnused,     kUnused,     kUnused,
                kUnused,     kUnused,     kUnused,     kUnused,     kUnused,     kUnused,
                kUnused,     kUnused,     kUnused,     kUnused,     kUnused,     kUnused,
                kUnused,     kUnused,     kUnused,     kUnused,     kUnused,     kUnused,
                kUnused,     kUnused,     kUnused,     kUnused,     kUnused,     kUnused,
                kUnused,     kUnused,     kUnused,     kUnused} {}
};

// Constant-initialised, so it is ready before any static constructor logs.
constinit GroupTable gTable;

}  // namespace

uint64_t LookUpLogGroup(std::string_view name) {
    if (name.empty()) {
        return 0;
    }
    uint32_t packed = Pack(name);
    unsigned last = gTable.last.load(std::memory_order_acquire);
    for (unsigned i = 0; i <= last && i < kLogGroupCount; ++i) {
        if (gTable.names[i].load(std::memory_order_acquire) == packed) {
            return uint64_t{1} << i;
        }
    }
    unsigned index = gTable.last.fetch_add(1, std::memory_order_acq_rel) + 1;
    if (index >= kLogGroupCount) {
        gTable.last.store(kLogGroupCount - 1, std::memory_order_release);
        return 0;
    }
    gTable.names[index].store(packed, std::memory_order_release);
    return uint64_t{1} << index;
}

std::string LogGroupName(unsigned index) {
    if (index >= kLogGroupCount) {
        return {};
    }
    uint32_t packed = gTable.names[index].load(std::memory_order_acquire);
    std::string name;
    for (int i = 0; i < 3 && (packed >> (8 * i)) & 0xFF; ++i) {
        name += static_cast<char>((packed >> (8 * i)) & 0xFF);
    }
    return name;
}

std::string LogGroupNames(uint64_t mask) {
    std::string names;
    for (unsigned i = 0; i < kLogGroupCount; ++i) {
        if (mask & (uint64_t{1} << i)) {
            if (!names.empty()) {
                names += ';';
            }
            names += LogGroupName(i);
        }
    }
    return names;
}

}  // namespace Orvan::Framework
