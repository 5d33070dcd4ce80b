#include "ZelSystemProperty.h"

#include <cutils/properties.h>

#include "ZelLog.h"
#include "ZelTrace.h"

ZelSystemProperty::BoolReader ZelSystemProperty::sBoolReader = property_get_bool;
ZelSystemProperty::Writer ZelSystemProperty::sWriter = property_set;

bool ZelSystemProperty::setProperty(const std::string& name, const std::string& value) {
    const ZelTraceSlice write("property write", "name", name, "value", value);
    ZEL_LOGD("Key:%s, Value:%s", name.c_str(), value.c_str());
    return sWriter(name.c_str(), value.c_str()) == 0;
}

bool ZelSystemProperty::getProperty(const std::string& name, bool& value) {
    value = sBoolReader(name.c_str(), 0) != 0;
    return value;
}
