#include "framework/module/PluginEntry.h"

namespace Orvan::Framework {

void ClearLoadRecordOutputs(PluginLoadRecord& record) {
    record.callbacks = nullptr;
    record.module = nullptr;
    record.shortName = nullptr;
    record.apiDescriptor = nullptr;
}

}  // namespace Orvan::Framework
