#pragma once

// The host binder runtime's wire format: what two processes exchange over a
// connection (a SOCK_STREAM Unix socket). This layout is frozen by golden
// tests (tests/bytes); a change needs a new version number.
//
// Every frame is a 32-byte header followed by a body. Integers are
// little-endian.
//
//   offset size  field
//   0      4     magic        0x4642425A (bytes "ZBBF")
//   4      2     version      1
//   6      2     type         ZelFrameType
//   8      4     bodySize     bytes after the header
//   12     4     code         TRANSACTION: transaction code; REPLY: status_t of
//                             the call; REFS: strong-reference delta (int32,
//                             -1, 0 or +1); HELLO: 0
//   16     4     flags        TRANSACTION: FLAG_ONEWAY or 0; REFS: number of
//                             transferred references acknowledged; else 0
//   20     4     handle       TRANSACTION, REFS: the target object's handle
//                             in the receiving process; else 0
//   24     4     payloadSize  bytes of parcel data, at most kZelMaxPayload
//   28     2     objectCount  binder references after the payload, at most
//                             kZelMaxObjects
//   30     2     fdCount      file descriptors that come with the frame, at
//                             most kZelMaxFds (TRANSACTION and REPLY only)
//
// Body: the payload, then objectCount references, each
//   uint32 handle, uint8 endpointLength (1..kZelMaxEndpoint), endpoint bytes
// naming an object by the endpoint of the process that owns it and the
// handle it was exported under there. bodySize must equal the payload plus
// the references exactly.
//
// The fdCount descriptors travel as SCM_RIGHTS ancillary data with the
// frame's first byte, in the order the parcel holds them; the receiver
// takes them in the order they arrive. Frames read from bytes alone
// (decodeZelFrame) carry none.
//
// Frame types and who sends them:
//   HELLO        first frame of every connection, from the connecting side;
//                the payload is the sender's endpoint name
//   TRANSACTION  a call on the receiver's object `handle`
//   REPLY        the answer to the one synchronous TRANSACTION in flight on
//                this connection
//   REFS         reference bookkeeping for the receiver's object `handle`
// Fields a type does not use must be zero; a HELLO carries 1..kZelMaxEndpoint
// payload bytes and no objects or descriptors; a REFS frame carries no
// payload, objects or descriptors. A frame that breaks any rule closes its connection, nothing else.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <utils/Errors.h>

namespace zel::binder {

inline constexpr uint32_t kZelFrameMagic = 0x4642425A;
inline constexpr uint16_t kZelFrameVersion = 2;
inline constexpr size_t kZelFrameHeaderSize = 32;
// Largest parcel one transaction or reply carries.
inline constexpr size_t kZelMaxPayload = 1024 * 1024;
inline constexpr size_t kZelMaxObjects = 256;
inline constexpr size_t kZelMaxEndpoint = 64;
// The most descriptors the kernel passes in one message (SCM_MAX_FD).
inline constexpr size_t kZelMaxFds = 253;
// The only TRANSACTION flag (IBinder::FLAG_ONEWAY).
inline constexpr uint32_t kZelFlagOneway = 0x1;
inline constexpr size_t kZelMaxBody =
        kZelMaxPayload + kZelMaxObjects * (4 + 1 + kZelMaxEndpoint);

enum class ZelFrameType : uint16_t {
    HELLO = 1,
    TRANSACTION = 2,
    REPLY = 3,
    REFS = 4,
};

struct ZelObjectRef {
    std::string endpoint;
    uint32_t handle = 0;
    bool operator==(const ZelObjectRef& o) const { return endpoint == o.endpoint && handle == o.handle; }
};

struct ZelFrame {
    ZelFrameType type = ZelFrameType::HELLO;
    uint32_t code = 0;
    uint32_t flags = 0;
    uint32_t handle = 0;
    std::vector<uint8_t> payload;
    std::vector<ZelObjectRef> objects;
    std::vector<android::base::unique_fd> fds;  // owned by the frame
};

struct ZelFrameHeader {
    ZelFrameType type = ZelFrameType::HELLO;
    uint32_t bodySize = 0;
    uint32_t code = 0;
    uint32_t flags = 0;
    uint32_t handle = 0;
    uint32_t payloadSize = 0;
    uint32_t objectCount = 0;
    uint32_t fdCount = 0;
};

// An endpoint name: 1..kZelMaxEndpoint characters of [A-Za-z0-9_-].
bool isValidZelEndpoint(const std::string& name);

// Appends the encoded frame (not its descriptors) to `out`. BAD_VALUE when
// the frame breaks a limit (FAILED_TRANSACTION for a payload over
// kZelMaxPayload or more than kZelMaxFds descriptors).
android::status_t encodeZelFrame(const ZelFrame& frame, std::vector<uint8_t>* out);

// Checks magic, version, type, sizes and limits of a 32-byte header.
[[nodiscard]] android::status_t decodeZelFrameHeader(const uint8_t* bytes, ZelFrameHeader* out);

// Decodes the body that follows `header`; `len` must be header.bodySize.
// Moves nothing out of `body`; fills `out` only on success, without
// descriptors (the reader hands over header.fdCount of them).
[[nodiscard]] android::status_t decodeZelFrameBody(const ZelFrameHeader& header, const uint8_t* body, size_t len,
                                     ZelFrame* out);

// Header and body in one buffer that must hold exactly one frame, which
// then cannot carry descriptors.
[[nodiscard]] android::status_t decodeZelFrame(const uint8_t* bytes, size_t len, ZelFrame* out);

}  // namespace zel::binder
