#include "zel/binder/ZelWireFrame.h"

#include <cstring>

namespace zel::binder {

using android::BAD_VALUE;
using android::FAILED_TRANSACTION;
using android::OK;
using android::status_t;

namespace {

void putU32(uint8_t* at, uint32_t v) {
    at[0] = static_cast<uint8_t>(v);
    at[1] = static_cast<uint8_t>(v >> 8);
    at[2] = static_cast<uint8_t>(v >> 16);
    at[3] = static_cast<uint8_t>(v >> 24);
}

void putU16(uint8_t* at, uint16_t v) {
    at[0] = static_cast<uint8_t>(v);
    at[1] = static_cast<uint8_t>(v >> 8);
}

uint16_t getU16(const uint8_t* at) { return static_cast<uint16_t>(at[0] | (at[1] << 8)); }

uint32_t getU32(const uint8_t* at) {
    return static_cast<uint32_t>(at[0]) | (static_cast<uint32_t>(at[1]) << 8) |
           (static_cast<uint32_t>(at[2]) << 16) | (static_cast<uint32_t>(at[3]) << 24);
}

bool validType(uint16_t type) {
    return type >= static_cast<uint16_t>(ZelFrameType::HELLO) &&
           type <= static_cast<uint16_t>(ZelFrameType::REFS);
}

}  // namespace

bool isValidZelEndpoint(const std::string& name) {
    if (name.empty() || name.size() > kZelMaxEndpoint) return false;
    for (char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                        c == '-' || c == '_';
        if (!ok) return false;
    }
    return true;
}

status_t encodeZelFrame(const ZelFrame& frame, std::vector<uint8_t>* out) {
    if (frame.payload.size() > kZelMaxPayload || frame.fds.size() > kZelMaxFds) return FAILED_TRANSACTION;
    if (frame.objects.size() > kZelMaxObjects || !validType(static_cast<uint16_t>(frame.type))) {
        return BAD_VALUE;
    }
    size_t body = frame.payload.size();
    for (const ZelObjectRef& ref : frame.objects) {
        if (!isValidZelEndpoint(ref.endpoint)) return BAD_VALUE;
        body += 4 + 1 + ref.endpoint.size();
    }
    const size_t start = out->size();
    out->resize(start + kZelFrameHeaderSize + body);
    uint8_t* h = out->data() + start;
    putU32(h, kZelFrameMagic);
    putU16(h + 4, kZelFrameVersion);
    putU16(h + 6, static_cast<uint16_t>(frame.type));
    putU32(h + 8, static_cast<uint32_t>(body));
    putU32(h + 12, frame.code);
    putU32(h + 16, frame.flags);
    putU32(h + 20, frame.handle);
    putU32(h + 24, static_cast<uint32_t>(frame.payload.size()));
    putU16(h + 28, static_cast<uint16_t>(frame.objects.size()));
    putU16(h + 30, static_cast<uint16_t>(frame.fds.size()));
    uint8_t* p = h + kZelFrameHeaderSize;
    if (!frame.payload.empty()) std::memcpy(p, frame.payload.data(), frame.payload.size());
    p += frame.payload.size();
    for (const ZelObjectRef& ref : frame.objects) {
        putU32(p, ref.handle);
        p[4] = static_cast<uint8_t>(ref.endpoint.size());
        std::memcpy(p + 5, ref.endpoint.data(), ref.endpoint.size());
        p += 5 + ref.endpoint.size();
    }
    return OK;
}

status_t decodeZelFrameHeader(const uint8_t* bytes, ZelFrameHeader* out) {
    if (getU32(bytes) != kZelFrameMagic) return BAD_VALUE;
    const uint16_t version = getU16(bytes + 4);
    const uint16_t type = getU16(bytes + 6);
    if (version != kZelFrameVersion || !validType(type)) return BAD_VALUE;
    ZelFrameHeader h;
    h.type = static_cast<ZelFrameType>(type);
    h.bodySize = getU32(bytes + 8);
    h.code = getU32(bytes + 12);
    h.flags = getU32(bytes + 16);
    h.handle = getU32(bytes + 20);
    h.payloadSize = getU32(bytes + 24);
    h.objectCount = getU16(bytes + 28);
    h.fdCount = getU16(bytes + 30);
    if (h.bodySize > kZelMaxBody || h.payloadSize > kZelMaxPayload ||
        h.objectCount > kZelMaxObjects || h.fdCount > kZelMaxFds || h.payloadSize > h.bodySize ||
        h.bodySize - h.payloadSize < h.objectCount * 6u) {
        return BAD_VALUE;
    }
    // Per-type rules: fields a type does not use must be zero.
    switch (h.type) {
        case ZelFrameType::HELLO:
            if (h.code != 0 || h.flags != 0 || h.handle != 0 || h.objectCount != 0 || h.fdCount != 0 ||
                h.payloadSize == 0 || h.payloadSize > kZelMaxEndpoint) {
                return BAD_VALUE;
            }
            break;
        case ZelFrameType::TRANSACTION:
            if ((h.flags & ~kZelFlagOneway) != 0) return BAD_VALUE;
            break;
        case ZelFrameType::REPLY:
            if (h.flags != 0 || h.handle != 0) return BAD_VALUE;
            break;
        case ZelFrameType::REFS: {
            const int32_t delta = static_cast<int32_t>(h.code);
            if (h.payloadSize != 0 || h.objectCount != 0 || h.fdCount != 0 || delta < -1 || delta > 1) {
                return BAD_VALUE;
            }
            break;
        }
    }
    *out = h;
    return OK;
}

status_t decodeZelFrameBody(const ZelFrameHeader& header, const uint8_t* body, size_t len,
                            ZelFrame* out) {
    if (len != header.bodySize || header.payloadSize > len) return BAD_VALUE;
    std::vector<ZelObjectRef> objects;
    objects.reserve(header.objectCount);
    size_t pos = header.payloadSize;
    for (uint32_t i = 0; i < header.objectCount; ++i) {
        if (len - pos < 5) return BAD_VALUE;
        ZelObjectRef ref;
        ref.handle = getU32(body + pos);
        const size_t nameLen = body[pos + 4];
        pos += 5;
        if (nameLen == 0 || nameLen > kZelMaxEndpoint || len - pos < nameLen) return BAD_VALUE;
        ref.endpoint.assign(reinterpret_cast<const char*>(body + pos), nameLen);
        if (!isValidZelEndpoint(ref.endpoint)) return BAD_VALUE;
        pos += nameLen;
        objects.push_back(std::move(ref));
    }
    if (pos != len) return BAD_VALUE;
    out->type = header.type;
    out->code = header.code;
    out->flags = header.flags;
    out->handle = header.handle;
    out->payload.assign(body, body + header.payloadSize);
    out->objects = std::move(objects);
    out->fds.clear();
    return OK;
}

status_t decodeZelFrame(const uint8_t* bytes, size_t len, ZelFrame* out) {
    if (len < kZelFrameHeaderSize) return BAD_VALUE;
    ZelFrameHeader header;
    status_t status = decodeZelFrameHeader(bytes, &header);
    if (status != OK) return status;
    if (len - kZelFrameHeaderSize != header.bodySize || header.fdCount != 0) return BAD_VALUE;
    return decodeZelFrameBody(header, bytes + kZelFrameHeaderSize, len - kZelFrameHeaderSize, out);
}

}  // namespace zel::binder
