// Feeds arbitrary bytes to the frame decoder, as a peer could send them. A
// frame that decodes must encode back to exactly the same bytes; its payload
// is then read the way a server reads a call.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include <binder/Parcel.h>
#include <binder/Status.h>

#include "zel/binder/ZelWireFrame.h"

using namespace zel::binder;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ZelFrame frame;
    if (decodeZelFrame(data, size, &frame) != android::OK) return 0;

    std::vector<uint8_t> again;
    if (encodeZelFrame(frame, &again) != android::OK) abort();
    if (again.size() != size || !std::equal(again.begin(), again.end(), data)) abort();

    android::Parcel parcel;
    parcel.setData(frame.payload.data(), frame.payload.size());
    android::binder::Status status;
    status.readFromParcel(parcel);
    parcel.setDataPosition(0);
    parcel.enforceInterface(android::String16("com.ostrel.zeld.interfaces.IZelBinderIPC"));
    std::vector<uint8_t> bytes;
    parcel.readByteVector(&bytes);
    android::String16 text;
    parcel.readString16(&text);
    std::vector<int32_t> ints;
    parcel.readInt32Vector(&ints);
    android::sp<android::IBinder> binder;
    parcel.readNullableStrongBinder(&binder);
    return 0;
}
