// The daemon is compiled against these headers here and against the device's own on Android. This
// file compiles against both: a changed signature fails the build.
#include <android/log.h>
#include <binder/Parcel.h>
#include <cutils/properties.h>
#include <cutils/sockets.h>
#include <stddef.h>
#include <stdint.h>

#include <type_traits>
#include <utility>

namespace {

using android::Parcel;
using android::status_t;

template <typename Expected, typename Actual>
constexpr bool same = std::is_same<Expected, Actual>::value;

static_assert(PROPERTY_VALUE_MAX == 92, "buffers of callers");

// As calls, because the platform may declare overloads that check the size of the array.
using Value = char[PROPERTY_VALUE_MAX];
static_assert(same<int, decltype(property_get("", std::declval<Value&>(), nullptr))>, "");
static_assert(same<int, decltype(property_set("", nullptr))>, "");

static_assert(ANDROID_SOCKET_NAMESPACE_ABSTRACT == 0, "");
static_assert(ANDROID_SOCKET_NAMESPACE_RESERVED == 1, "");
static_assert(ANDROID_SOCKET_NAMESPACE_FILESYSTEM == 2, "");
static_assert(same<int(const char*), decltype(android_get_control_socket)>, "");
static_assert(same<int(const char*, int, int), decltype(socket_local_client)>, "");

// As an assignment: an attribute such as printf's is no part of the type.
[[maybe_unused]] constexpr int (*kLogPrint)(int, const char*, const char*,
                                            ...) = __android_log_print;
static_assert(ANDROID_LOG_VERBOSE == 2 && ANDROID_LOG_DEBUG == 3 && ANDROID_LOG_INFO == 4, "");
static_assert(ANDROID_LOG_WARN == 5 && ANDROID_LOG_ERROR == 6, "");

static_assert(same<int32_t, status_t>, "");
static_assert(same<status_t (Parcel::*)(const uint8_t*, size_t), decltype(&Parcel::setData)>, "");
static_assert(same<const uint8_t* (Parcel::*)() const, decltype(&Parcel::data)>, "");
static_assert(same<size_t (Parcel::*)() const, decltype(&Parcel::dataSize)>, "");
static_assert(same<size_t (Parcel::*)() const, decltype(&Parcel::dataAvail)>, "");
// As calls again: the platform overloads these with a status result.
static_assert(same<int32_t, decltype(std::declval<const Parcel&>().readInt32())>, "");
static_assert(same<int64_t, decltype(std::declval<const Parcel&>().readInt64())>, "");
static_assert(same<const char16_t*, decltype(std::declval<const Parcel&>().readString16Inplace(
                                        std::declval<size_t*>()))>,
              "");
static_assert(same<status_t (Parcel::*)(int32_t), decltype(&Parcel::writeInt32)>, "");
static_assert(same<status_t (Parcel::*)(int64_t), decltype(&Parcel::writeInt64)>, "");
static_assert(same<status_t (Parcel::*)(const char*), decltype(&Parcel::writeCString)>, "");
static_assert(std::is_copy_constructible<Parcel>::value && std::is_copy_assignable<Parcel>::value,
              "a type that holds one can be copied: nothing but care keeps it from that");

// <binder/Parcel.h> includes <log/log.h>: its macros must not clash with our names.
#if !defined(ALOG) || !defined(ALOGE) || !defined(LOG_TAG) || !defined(LOG_PRI)
#error "the log macros are missing"
#endif

}  // namespace
