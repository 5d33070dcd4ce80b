#include <com/ostrel/zeld/utils/ZelServiceIdentifierUtils.h>

#include <iterator>

namespace com::ostrel::zeld::utils {

using interfaces::ServiceIdentifier;

namespace {

struct ModuleName {
    int32_t id;
    const char* name;
};

// Tried in this order; the first exact match wins.
constexpr ModuleName kModuleNames[] = {
        {ServiceIdentifier::INVALID_SERVICE_UUID, "INVALID_SERVICE_UUID"},
        {ServiceIdentifier::COM_OSTREL_ZELD, "COM_OSTREL_ZELD"},
        {ServiceIdentifier::COM_OSTREL_ARDEN_HYBRID_EXEC, "COM_OSTREL_ARDEN_HYBRID_EXEC"},
        {ServiceIdentifier::COM_OSTREL_MARLOWAPP, "COM_OSTREL_MARLOWAPP"},
        {ServiceIdentifier::COM_OSTREL_LARK_SIM, "COM_OSTREL_LARK_SIM"},
        {ServiceIdentifier::COM_OSTREL_TALLYD, "COM_OSTREL_TALLYD"},
        {ServiceIdentifier::COM_OSTREL_ZELD_TEST_CLIENT, "COM_OSTREL_ZELD_TEST_CLIENT"},
};

}  // namespace

ServiceIdentifier ZelServiceIdentifierUtils::fromModuleName(const std::string& moduleName) {
    for (const ModuleName& entry : kModuleNames) {
        if (moduleName == entry.name) return ServiceIdentifier(entry.id);
    }
    return ServiceIdentifier(ServiceIdentifier::INVALID_SERVICE_UUID);
}

const char* ZelServiceIdentifierUtils::toModuleName(int32_t id) {
    for (const ModuleName& entry : kModuleNames) {
        if (id == entry.id) return entry.name;
    }
    return kModuleNames[0].name;
}

}  // namespace com::ostrel::zeld::utils
