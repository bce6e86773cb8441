#include "support/settings/MacDefaultsStore.hpp"

#import <Foundation/Foundation.h>

#include "support/plist/Plist.hpp"

namespace quorv {
namespace {

// Values cross the boundary as property lists, so the one conversion the Linux tests cover
// (support/plist) is the only one there is.
std::optional<Value> toValue(CFPropertyListRef ref) {
    if (!ref) return std::nullopt;
    CFErrorRef error = nullptr;
    CFDataRef data = CFPropertyListCreateData(nullptr, ref, kCFPropertyListBinaryFormat_v1_0, 0, &error);
    if (!data) {
        if (error) CFRelease(error);
        return std::nullopt;
    }
    std::string bytes(reinterpret_cast<const char*>(CFDataGetBytePtr(data)), CFDataGetLength(data));
    CFRelease(data);
    return plist::parse(bytes);
}

// The key as the defaults system takes it; null for a key it can't hold (never passed on).
CFStringRef keyRef(const std::string& key) {
    if (!isStorableKey(key)) return nullptr;
    return CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(key.data()), static_cast<CFIndex>(key.size()),
                                   kCFStringEncodingUTF8, false);
}

CFPropertyListRef toRef(const Value& value) {
    const std::string bytes = plist::toBinary(value);
    CFDataRef data = CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()), bytes.size());
    CFPropertyListRef ref = CFPropertyListCreateWithData(nullptr, data, kCFPropertyListImmutable, nullptr, nullptr);
    CFRelease(data);
    return ref;
}

class MacDefaultsStore final : public SettingsStore {
public:
    explicit MacDefaultsStore(const char* domain)
        : domain_(CFStringCreateWithCString(nullptr, domain, kCFStringEncodingUTF8)) {}
    ~MacDefaultsStore() override { CFRelease(domain_); }

    std::optional<Value> object(const std::string& key) override {
        CFStringRef k = keyRef(key);
        if (!k) return std::nullopt;
        CFPropertyListRef ref = CFPreferencesCopyAppValue(k, domain_);
        CFRelease(k);
        auto v = toValue(ref);
        if (ref) CFRelease(ref);
        return v;
    }
    bool set(const std::string& key, const Value& value) override {
        CFStringRef k = keyRef(key);
        if (!k) return false;
        CFPropertyListRef ref = toRef(value);
        if (ref) CFPreferencesSetAppValue(k, ref, domain_);
        if (ref) CFRelease(ref);
        CFRelease(k);
        return ref != nullptr;
    }
    bool remove(const std::string& key) override {
        CFStringRef k = keyRef(key);
        if (!k) return false;
        CFPreferencesSetAppValue(k, nullptr, domain_);
        CFRelease(k);
        return true;
    }
    bool synchronize() override { return CFPreferencesAppSynchronize(domain_); }
    std::vector<std::string> keys() override {
        std::vector<std::string> out;
        CFArrayRef list = CFPreferencesCopyKeyList(domain_, kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
        if (!list) return out;
        for (CFIndex i = 0; i < CFArrayGetCount(list); ++i) {
            NSString* s = (__bridge NSString*)CFArrayGetValueAtIndex(list, i);
            if (const char* key = s.UTF8String) out.emplace_back(key);
        }
        CFRelease(list);
        return out;
    }

private:
    CFStringRef domain_;
};

}  // namespace

std::shared_ptr<SettingsStore> makeMacDefaultsStore(const char* domain) {
    return std::make_shared<MacDefaultsStore>(domain);
}

}  // namespace quorv
