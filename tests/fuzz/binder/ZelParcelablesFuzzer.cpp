// convertBytesToParcelable on every parcelable of the interface library. The
// first byte picks the parcelable, the rest are the bytes. Accepted bytes
// must serialise back to themselves; refused bytes must leave the
// parcelable as it was.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include <com/ostrel/zeld/interfaces/MessageIdentifier.h>
#include <com/ostrel/zeld/interfaces/ServiceIdentifier.h>
#include <com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h>
#include <com/ostrel/zeld/interfaces/ZelEventParamsParcelable.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>

using namespace com::ostrel::zeld::interfaces;
using com::ostrel::zeld::utils::ZelParcelableHelperUtils;

namespace {

template <typename T>
void check(const std::vector<uint8_t>& bytes) {
    T target;
    std::vector<uint8_t> before;
    if (!ZelParcelableHelperUtils::convertParcelableToBytes(&target, before)) abort();
    const bool accepted = ZelParcelableHelperUtils::convertBytesToParcelable(bytes, &target);
    std::vector<uint8_t> after;
    if (!ZelParcelableHelperUtils::convertParcelableToBytes(&target, after)) abort();
    if (accepted ? after != bytes : after != before) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::vector<uint8_t> bytes(data + 1, data + size);
    switch (data[0] % 5) {
        case 0: check<ServiceIdentifier>(bytes); break;
        case 1: check<MessageIdentifier>(bytes); break;
        case 2: check<ZelAsyncParamsBinderParcelable>(bytes); break;
        case 3: check<ZelCallbackParamsParcelable>(bytes); break;
        case 4: check<ZelEventParamsParcelable>(bytes); break;
    }
    return 0;
}
