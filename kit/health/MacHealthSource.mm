#include "kit/health/MacHealthSource.hpp"

#import <Foundation/Foundation.h>
#include <IOKit/IOCFPlugIn.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/ps/IOPSKeys.h>
#include <IOKit/ps/IOPowerSources.h>
#include <IOKit/storage/nvme/NVMeSMARTLibExternal.h>

#include "support/plist/Plist.hpp"

namespace brimstell {
namespace {

// Dictionaries cross as property lists, so the one conversion the Linux tests cover is used.
std::optional<quorv::Value> toValue(CFTypeRef ref) {
    if (!ref) return std::nullopt;
    CFDataRef data = CFPropertyListCreateData(nullptr, ref, kCFPropertyListBinaryFormat_v1_0, 0, nullptr);
    if (!data) return std::nullopt;
    std::string bytes(reinterpret_cast<const char*>(CFDataGetBytePtr(data)), CFDataGetLength(data));
    CFRelease(data);
    return quorv::plist::parse(bytes);
}

// The first registry service matching the dictionary (which is consumed), or 0.
io_service_t firstService(CFMutableDictionaryRef matching) {
    return IOServiceGetMatchingService(kIOMainPortDefault, matching);
}

class MacHealthSource final : public quorv::HealthSource {
public:
    std::optional<quorv::Value> smartBattery() override {
        io_service_t service = firstService(IOServiceMatching("AppleSmartBattery"));
        if (!service) return std::nullopt;
        CFMutableDictionaryRef props = nullptr;
        IORegistryEntryCreateCFProperties(service, &props, kCFAllocatorDefault, 0);
        IOObjectRelease(service);
        auto v = toValue(props);
        if (props) CFRelease(props);
        return v;
    }

    std::vector<quorv::Value> powerSources() override {
        std::vector<quorv::Value> out;
        CFTypeRef info = IOPSCopyPowerSourcesInfo();
        if (!info) return out;
        CFArrayRef list = IOPSCopyPowerSourcesList(info);
        for (CFIndex i = 0; list && i < CFArrayGetCount(list); ++i) {
            CFDictionaryRef d = IOPSGetPowerSourceDescription(info, CFArrayGetValueAtIndex(list, i));
            if (auto v = toValue(d)) out.push_back(std::move(*v));
        }
        if (list) CFRelease(list);
        CFRelease(info);
        return out;
    }

    std::optional<quorv::Value> powerAdapter() override {
        CFDictionaryRef details = IOPSCopyExternalPowerAdapterDetails();
        auto v = toValue(details);
        if (details) CFRelease(details);
        return v;
    }

    std::optional<std::string> nvmeSmartLog() override {
        CFMutableDictionaryRef matching = IOServiceMatching("IONVMeBlockStorageDevice");
        io_iterator_t it = 0;
        if (IOServiceGetMatchingServices(kIOMainPortDefault, matching, &it) != KERN_SUCCESS) return std::nullopt;
        std::optional<std::string> page;
        while (io_service_t service = IOIteratorNext(it)) {
            CFTypeRef capable = IORegistryEntryCreateCFProperty(service, CFSTR("NVMe SMART Capable"), kCFAllocatorDefault, 0);
            const bool yes = capable && CFGetTypeID(capable) == CFBooleanGetTypeID() && CFBooleanGetValue((CFBooleanRef)capable);
            if (capable) CFRelease(capable);
            if (yes && !page) page = readLog(service);
            IOObjectRelease(service);
        }
        IOObjectRelease(it);
        return page;
    }

private:
    // The log page through the NVMe SMART user client's plug-in.
    static std::optional<std::string> readLog(io_service_t service) {
        IOCFPlugInInterface** plugin = nullptr;
        SInt32 score = 0;
        if (IOCreatePlugInInterfaceForService(service, kIONVMeSMARTUserClientTypeID, kIOCFPlugInInterfaceID, &plugin,
                                              &score) != kIOReturnSuccess || !plugin) {
            return std::nullopt;
        }
        IONVMeSMARTInterface** smart = nullptr;
        (*plugin)->QueryInterface(plugin, CFUUIDGetUUIDBytes(kIONVMeSMARTInterfaceID), reinterpret_cast<LPVOID*>(&smart));
        std::optional<std::string> page;
        if (smart) {
            NVMeSMARTData data{};
            if ((*smart)->SMARTReadData(smart, &data) == kIOReturnSuccess) {
                page = std::string(reinterpret_cast<const char*>(&data), sizeof data);
            }
            (*smart)->Release(smart);
        }
        IODestroyPlugInInterface(plugin);
        return page;
    }
};

}  // namespace

std::shared_ptr<quorv::HealthSource> makeMacHealthSource() { return std::make_shared<MacHealthSource>(); }

}  // namespace brimstell
