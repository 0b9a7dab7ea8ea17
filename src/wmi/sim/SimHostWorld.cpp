#include "wmi/sim/SimHostWorld.h"

#include <initializer_list>

namespace morvax::wmi {

namespace {

struct PropertyDecl {
    const char16_t* name;
    SimCimType type;
};

using S = SimCimType;

std::shared_ptr<const SimClass> makeClass(std::initializer_list<const char16_t*> derivation,
                                          std::initializer_list<PropertyDecl> properties) {
    std::vector<std::u16string> chain(derivation.begin(), derivation.end());
    auto cls = std::make_shared<SimClass>(chain[0], chain.size() > 1 ? chain[1] : u"");
    cls->setDerivation(std::move(chain));
    cls->setSource(SimClass::Source::HOST);
    for (const PropertyDecl& p : properties) {
        cls->addProperty(p.name, SimTypes::cim(p.type));
    }
    return cls;
}

}  // namespace

std::vector<std::shared_ptr<const SimClass>> SimHostWorld::classes() {
    std::vector<std::shared_ptr<const SimClass>> out;
    out.push_back(makeClass({u"Win32_OperatingSystem", u"CIM_OperatingSystem",
                             u"CIM_LogicalElement", u"CIM_ManagedSystemElement"},
                            {{u"BuildNumber", S::STRING},
                             {u"Caption", S::STRING},
                             {u"CSName", S::STRING},
                             {u"CurrentTimeZone", S::SINT16},
                             {u"FreePhysicalMemory", S::UINT64},
                             {u"FreeSpaceInPagingFiles", S::UINT64},
                             {u"FreeVirtualMemory", S::UINT64},
                             {u"LastBootUpTime", S::DATETIME},
                             {u"LocalDateTime", S::DATETIME},
                             {u"Manufacturer", S::STRING},
                             {u"Name", S::STRING},
                             {u"NumberOfProcesses", S::UINT32},
                             {u"OSArchitecture", S::STRING},
                             {u"OSType", S::UINT16},
                             {u"SizeStoredInPagingFiles", S::UINT64},
                             {u"Status", S::STRING},
                             {u"TotalVirtualMemorySize", S::UINT64},
                             {u"TotalVisibleMemorySize", S::UINT64},
                             {u"Version", S::STRING}}));
    out.push_back(
        makeClass({u"Win32_ComputerSystem", u"CIM_UnitaryComputerSystem", u"CIM_ComputerSystem",
                   u"CIM_System", u"CIM_LogicalElement", u"CIM_ManagedSystemElement"},
                  {{u"Caption", S::STRING},
                   {u"Description", S::STRING},
                   {u"Domain", S::STRING},
                   {u"DomainRole", S::UINT16},
                   {u"Manufacturer", S::STRING},
                   {u"Model", S::STRING},
                   {u"Name", S::STRING},
                   {u"NumberOfLogicalProcessors", S::UINT32},
                   {u"NumberOfProcessors", S::UINT32},
                   {u"Status", S::STRING},
                   {u"SystemType", S::STRING},
                   {u"TotalPhysicalMemory", S::UINT64},
                   {u"UserName", S::STRING}}));
    out.push_back(makeClass({u"Win32_Processor", u"CIM_Processor", u"CIM_LogicalDevice",
                             u"CIM_LogicalElement", u"CIM_ManagedSystemElement"},
                            {{u"AddressWidth", S::UINT16},
                             {u"Architecture", S::UINT16},
                             {u"Caption", S::STRING},
                             {u"CurrentClockSpeed", S::UINT32},
                             {u"DataWidth", S::UINT16},
                             {u"Description", S::STRING},
                             {u"DeviceID", S::STRING},
                             {u"LoadPercentage", S::UINT16},
                             {u"Manufacturer", S::STRING},
                             {u"MaxClockSpeed", S::UINT32},
                             {u"Name", S::STRING},
                             {u"NumberOfCores", S::UINT32},
                             {u"NumberOfLogicalProcessors", S::UINT32},
                             {u"Status", S::STRING},
                             {u"SystemName", S::STRING}}));
    out.push_back(makeClass(
        {u"Win32_Process", u"CIM_Process", u"CIM_LogicalElement", u"CIM_ManagedSystemElement"},
        {{u"Caption", S::STRING},
         {u"CommandLine", S::STRING},
         {u"CreationDate", S::DATETIME},
         {u"CSName", S::STRING},
         {u"Description", S::STRING},
         {u"ExecutablePath", S::STRING},
         {u"Handle", S::STRING},
         {u"HandleCount", S::UINT32},
         {u"KernelModeTime", S::UINT64},
         {u"Name", S::STRING},
         {u"PageFaults", S::UINT32},
         {u"ParentProcessId", S::UINT32},
         {u"Priority", S::UINT32},
         {u"ProcessId", S::UINT32},
         {u"ThreadCount", S::UINT32},
         {u"UserModeTime", S::UINT64},
         {u"VirtualSize", S::UINT64},
         {u"WorkingSetSize", S::UINT64}}));
    out.push_back(
        makeClass({u"Win32_LogicalDisk", u"CIM_LogicalDisk", u"CIM_StorageExtent",
                   u"CIM_LogicalDevice", u"CIM_LogicalElement", u"CIM_ManagedSystemElement"},
                  {{u"Caption", S::STRING},
                   {u"Description", S::STRING},
                   {u"DeviceID", S::STRING},
                   {u"DriveType", S::UINT32},
                   {u"FileSystem", S::STRING},
                   {u"FreeSpace", S::UINT64},
                   {u"MaximumComponentLength", S::UINT32},
                   {u"MediaType", S::UINT32},
                   {u"Name", S::STRING},
                   {u"Size", S::UINT64},
                   {u"SystemName", S::STRING},
                   {u"VolumeName", S::STRING},
                   {u"VolumeSerialNumber", S::STRING}}));
    out.push_back(makeClass({u"Win32_PerfFormattedData_PerfOS_Memory", u"Win32_PerfFormattedData",
                             u"Win32_Perf", u"CIM_StatisticalInformation"},
                            {{u"AvailableBytes", S::UINT64},
                             {u"AvailableKBytes", S::UINT64},
                             {u"AvailableMBytes", S::UINT64},
                             {u"CacheBytes", S::UINT64},
                             {u"Caption", S::STRING},
                             {u"CommitLimit", S::UINT64},
                             {u"CommittedBytes", S::UINT64},
                             {u"Description", S::STRING},
                             {u"Name", S::STRING},
                             {u"PageFaultsPersec", S::UINT32},
                             {u"PagesPersec", S::UINT32},
                             {u"PercentCommittedBytesInUse", S::UINT32}}));
    out.push_back(
        makeClass({u"Win32_PerfFormattedData_PerfOS_Processor", u"Win32_PerfFormattedData",
                   u"Win32_Perf", u"CIM_StatisticalInformation"},
                  {{u"Caption", S::STRING},
                   {u"Description", S::STRING},
                   {u"InterruptsPersec", S::UINT32},
                   {u"Name", S::STRING},
                   {u"PercentDPCTime", S::UINT64},
                   {u"PercentIdleTime", S::UINT64},
                   {u"PercentInterruptTime", S::UINT64},
                   {u"PercentPrivilegedTime", S::UINT64},
                   {u"PercentProcessorTime", S::UINT64},
                   {u"PercentUserTime", S::UINT64}}));
    return out;
}

void SimHostWorld::addTo(SimHost& host) {
    if (!available()) {
        return;
    }
    SimNamespace& cimv2 = host.addNamespace(u"root\\cimv2");
    for (auto& cls : classes()) {
        if (!cimv2.find(cls->name())) {
            cimv2.add(std::move(cls));
        }
    }
    for (const char16_t* name : {u"Application", u"System", u"Security"}) {
        if (!host.findEventLog(name)) {
            SimEventLog::Setup setup;
            setup.name = name;
            host.addEventLog(std::make_shared<SimEventLog>(std::move(setup)));
        }
    }
}

void SimHostWorld::fill(const std::shared_ptr<const SimClass>& cls,
                        std::vector<std::shared_ptr<const SimInstance>>& out) {
    std::vector<Row> found;
    rows(cls->name(), found);
    const std::vector<SimProperty>& properties = cls->properties();
    for (const Row& row : found) {
        std::vector<Variant> values(properties.size(), Variant::null());
        for (const auto& [name, raw] : row) {
            const int at = cls->find(name);
            if (at >= 0 && failed(SimTypes::convert(raw, properties[at].type, values[at]))) {
                values[at] = Variant::null();
            }
        }
        out.push_back(std::make_shared<const SimInstance>(cls, std::move(values)));
    }
}

}  // namespace morvax::wmi
