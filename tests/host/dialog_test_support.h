// Building dialog templates in tests of the dialog resources, services and runners.
#ifndef VELLUX_TESTS_HOST_DIALOG_TEST_SUPPORT_H
#define VELLUX_TESTS_HOST_DIALOG_TEST_SUPPORT_H

#include <string>

#include "host/dialog_resource.h"

namespace dialog_test {

inline vellux::host::DialogItem Item(int id, KV_ControlType type, KV_Rect bounds, std::string title = {},
                                     int value = 0, int labelFor = 0) {
    vellux::host::DialogItem item;
    item.id = int16_t(id);
    item.type = type;
    item.bounds = bounds;
    item.title = std::move(title);
    item.value = int16_t(value);
    item.labelFor = int16_t(labelFor);
    return item;
}

}  // namespace dialog_test

#endif  // VELLUX_TESTS_HOST_DIALOG_TEST_SUPPORT_H
