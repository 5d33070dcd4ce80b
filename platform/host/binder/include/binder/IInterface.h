#pragma once

#include <new>

#include <memory>

#include <binder/Binder.h>

namespace android {

// Base of every binder interface. An interface object is either the local
// object itself (BnInterface) or a proxy wrapper (BpInterface).
class IInterface : public virtual RefBase {
public:
    IInterface();
    static sp<IBinder> asBinder(const IInterface* iface);
    static sp<IBinder> asBinder(const sp<IInterface>& iface);

protected:
    ~IInterface() override;
    virtual IBinder* onAsBinder() = 0;
};

template <typename INTERFACE>
inline sp<INTERFACE> interface_cast(const sp<IBinder>& obj) {
    return INTERFACE::asInterface(obj);
}

template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
public:
    sp<IInterface> queryLocalInterface(const String16& descriptor) override;
    const String16& getInterfaceDescriptor() const override;

protected:
    typedef INTERFACE BaseInterface;
    IBinder* onAsBinder() override;
};

template <typename INTERFACE>
class BpInterface : public INTERFACE, public BpRefBase {
public:
    explicit BpInterface(const sp<IBinder>& remote);

protected:
    typedef INTERFACE BaseInterface;
    IBinder* onAsBinder() override;
};

#define DECLARE_META_INTERFACE(INTERFACE)                                           \
public:                                                                             \
    static const ::android::String16 descriptor;                                    \
    static ::android::sp<I##INTERFACE> asInterface(                                 \
            const ::android::sp<::android::IBinder>& obj);                          \
    virtual const ::android::String16& getInterfaceDescriptor() const;              \
    I##INTERFACE();                                                                 \
    virtual ~I##INTERFACE();                                                        \
    static bool setDefaultImpl(::android::sp<I##INTERFACE> impl);                   \
    static const ::android::sp<I##INTERFACE>& getDefaultImpl();                     \
                                                                                    \
private:                                                                            \
    static ::android::sp<I##INTERFACE> default_impl;                                \
                                                                                    \
public:

// The descriptor's text lives as long as the process, as the platform's
// static-string descriptors do: a binder thread may still compare a call's
// interface token with it while exit destroys the statics, so a copy made in
// static storage and never destroyed keeps the text's buffer (reachable, so
// no leak checker counts it).
#define IMPLEMENT_META_INTERFACE(INTERFACE, NAME)                                   \
    const ::android::String16 I##INTERFACE::descriptor(NAME);                       \
    alignas(::android::String16) static unsigned char                               \
            I##INTERFACE##_descriptor_kept[sizeof(::android::String16)];            \
    [[maybe_unused]] static const ::android::String16* const                        \
            I##INTERFACE##_descriptor_copy =                                        \
                    new (I##INTERFACE##_descriptor_kept)                            \
                            ::android::String16(I##INTERFACE::descriptor);          \
    const ::android::String16& I##INTERFACE::getInterfaceDescriptor() const {       \
        return I##INTERFACE::descriptor;                                            \
    }                                                                               \
    ::android::sp<I##INTERFACE> I##INTERFACE::asInterface(                          \
            const ::android::sp<::android::IBinder>& obj) {                         \
        ::android::sp<I##INTERFACE> intr;                                           \
        if (obj != nullptr) {                                                       \
            intr = static_cast<I##INTERFACE*>(                                      \
                    obj->queryLocalInterface(I##INTERFACE::descriptor).get());      \
            if (intr == nullptr) {                                                  \
                intr = new Bp##INTERFACE(obj);                                      \
            }                                                                       \
        }                                                                           \
        return intr;                                                                \
    }                                                                               \
    ::android::sp<I##INTERFACE> I##INTERFACE::default_impl;                         \
    bool I##INTERFACE::setDefaultImpl(::android::sp<I##INTERFACE> impl) {           \
        if (!I##INTERFACE::default_impl && impl) {                                  \
            I##INTERFACE::default_impl = std::move(impl);                           \
            return true;                                                            \
        }                                                                           \
        return false;                                                               \
    }                                                                               \
    const ::android::sp<I##INTERFACE>& I##INTERFACE::getDefaultImpl() {             \
        return I##INTERFACE::default_impl;                                          \
    }                                                                               \
    I##INTERFACE::I##INTERFACE() {}                                                 \
    I##INTERFACE::~I##INTERFACE() {}

// ---------------------------------------------------------------------------

template <typename INTERFACE>
inline sp<IInterface> BnInterface<INTERFACE>::queryLocalInterface(const String16& descriptor) {
    if (descriptor == INTERFACE::descriptor) return this;
    return nullptr;
}

template <typename INTERFACE>
inline const String16& BnInterface<INTERFACE>::getInterfaceDescriptor() const {
    return INTERFACE::getInterfaceDescriptor();
}

template <typename INTERFACE>
IBinder* BnInterface<INTERFACE>::onAsBinder() {
    return this;
}

template <typename INTERFACE>
inline BpInterface<INTERFACE>::BpInterface(const sp<IBinder>& remote) : BpRefBase(remote) {}

template <typename INTERFACE>
inline IBinder* BpInterface<INTERFACE>::onAsBinder() {
    return remote();
}

}  // namespace android
