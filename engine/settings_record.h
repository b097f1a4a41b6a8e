// A settings record's fields read and laid out in either byte order, field by field.
#ifndef VELLUX_ENGINE_SETTINGS_RECORD_H
#define VELLUX_ENGINE_SETTINGS_RECORD_H

#include "engine/scene.h"
#include "vellux/plugin_records.h"

namespace vellux::engine {

// The settings record's fields in the record's own byte order (reversed when it is not this
// machine's); throws std::runtime_error for a record of the wrong size.
ControlDataRec DecodeSettings(const SettingsRecord& record);
// The record of `control` laid out in `order`; DecodeSettings reads it back field for field.
SettingsRecord EncodeSettings(const ControlDataRec& control, ByteOrder order);

}  // namespace vellux::engine

#endif  // VELLUX_ENGINE_SETTINGS_RECORD_H
