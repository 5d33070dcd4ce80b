#pragma once

// The one way the daemon's code includes RapidJSON (its document API, and the
// writer that dumps print with).
//
// RapidJSON 1.1.0's internal stack adds offsets to its still-null pointer on
// the first push of every parse. Clang's UBSan reports that (GCC's does not),
// which would stop every sanitized or fuzzing build at its first parse. The
// attribute keeps that one check out of RapidJSON's own functions; the
// daemon's code stays fully checked. The standard headers RapidJSON uses come
// first so that the attribute reaches RapidJSON's functions alone.
#include <cassert>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#if defined(__clang__)
#pragma clang attribute push(__attribute__((no_sanitize("pointer-overflow"))), apply_to = function)
#endif
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#if defined(__clang__)
#pragma clang attribute pop
#endif
