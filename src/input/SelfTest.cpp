#include "input/SelfTest.h"

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>

#include "input/DefaultQueryHandlerSchedulePolicy.h"
#include "input/MorvaxWMIConfiguration.h"
#include "input/OneShotRun.h"
#include "input/QueryAnalyzer.h"
#include "input/RunPreamble.h"
#include "input/TestWMIConfiguration.h"
#include "input/TestWMIConnectionConsumer.h"
#include "input/WMICheckpointer.h"
#include "input/WMIConnectionFactory.h"
#include "input/WMIConnectionManager.h"
#include "input/WMIQueryHandlerBuilder.h"
#include "input/WMITuning.h"
#include "input/XorShift128Plus.h"
#include "util/thread/Thread.h"
#include "util/time/Sleep.h"
#include "util/time/Timeval.h"
#include "wmi/WmiProvider.h"

namespace morvax {

namespace {

void print(const Str& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

[[noreturn]] void failWith(int status, const Str& text) {
    std::fflush(stdout);
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
    std::exit(status);
}

// ---- Check 1: the connection factory

constexpr unsigned kBatches = 3;
constexpr unsigned kRequestsPerBatch = 10;
constexpr uint64_t kNoLimit = std::numeric_limits<uint64_t>::max();
constexpr uint64_t kDrainPassMilliseconds = 100;

class FactoryCheck {
  public:
    FactoryCheck()
        : consumers_{{"\\\\localhost\\root\\cimv2", true},
                     {"\\\\127.0.0.1\\root\\cimv2", true},
                     {"root\\cimv2", true},
                     {"blahblahbogus", false},
                     {"morebogusbogus", false}},
          ipv6_("\\\\[::1]\\root\\cimv2", true) {}

    void run() {
        std::unique_ptr<wmi::Locator> locator = createWMILocator();
        WMIConnectionFactory factory(*locator);
        factory.start();

        uint64_t stackWord = 0;
        XorShift128Plus random(Thread::currentThreadId(),
                               static_cast<uint64_t>(reinterpret_cast<uintptr_t>(&stackWord)));
        for (unsigned batch = 0; batch < kBatches; ++batch) {
            print(Str::printf("Running batch %u with %u requests\n", batch, kRequestsPerBatch));
            for (unsigned i = 0; i < kRequestsPerBatch; ++i) {
                TestWMIConnectionConsumer& consumer = consumers_[random.next() % kConsumers];
                factory.request(&consumer);
                print(Str::printf("Request  %d to %s sent.\n", openRequests_,
                                  consumer.getNamespace().c_str()));
                ++openRequests_;
            }
            drain(factory, 0);
        }
        drain(factory, kNoLimit);

        if (wmi::WmiProvider::isVistaOrUp()) {
            factory.request(&ipv6_);
            print(Str::printf("Testing ipv6 on %s.\n", ipv6_.getNamespace().c_str()));
            drainIpv6(factory);
        } else {
            print("Skipping ipv6 test since the OS is not Vista or up.");
        }
        factory.stop();
        factory.join();
    }

  private:
    static constexpr size_t kConsumers = 5;

    // Takes the answers in, checking each against what its consumer expects. A limit of 0 makes
    // one pass; kNoLimit runs until no request is open.
    void drain(WMIConnectionFactory& factory, uint64_t limitMilliseconds) {
        const Timeval start = Timeval::now();
        for (;;) {
            if (limitMilliseconds == kNoLimit && openRequests_ == 0) {
                return;
            }
            WMIConnectionFactory::ConnectionResponse response;
            while (factory.pollResponse(response)) {
                const TestWMIConnectionConsumer* consumer = find(response.consumer);
                if (consumer == nullptr) {
                    failWith(-1, "ERROR: the response did not match any requested item.  A bug.\n");
                }
                check(*consumer, response);
                --openRequests_;
                report(*consumer, response);
            }
            if (limitMilliseconds == 0) {
                return;
            }
            sleep(kDrainPassMilliseconds);
            if (limitMilliseconds != kNoLimit &&
                Timeval::differenceMs(Timeval::now(), start) >= limitMilliseconds) {
                return;
            }
        }
    }

    // One pass for the IPv6 request alone; the count of open requests stays.
    void drainIpv6(WMIConnectionFactory& factory) {
        WMIConnectionFactory::ConnectionResponse response;
        while (factory.pollResponse(response)) {
            if (response.consumer != &ipv6_) {
                continue;
            }
            check(ipv6_, response);
            report(ipv6_, response);
        }
    }

    const TestWMIConnectionConsumer* find(const IWMIConnectionConsumer* consumer) const {
        for (const TestWMIConnectionConsumer& candidate : consumers_) {
            if (&candidate == consumer) {
                return &candidate;
            }
        }
        return nullptr;
    }

    void check(const TestWMIConnectionConsumer& consumer,
               const WMIConnectionFactory::ConnectionResponse& response) const {
        const bool succeeded = !wmi::failed(response.status);
        if (succeeded != consumer.expectSuccess()) {
            failWith(-1, Str::printf("ERROR: Response to request %d to %s did not exit as "
                                     "expected (HR %x, expected %s).\n",
                                     openRequests_, consumer.getNamespace().c_str(),
                                     static_cast<uint32_t>(response.status),
                                     consumer.expectSuccess() ? "SUCCESS" : "FAILURE"));
        }
    }

    void report(const TestWMIConnectionConsumer& consumer,
                const WMIConnectionFactory::ConnectionResponse& response) const {
        print(Str::printf("Response %d to %s returned as expected (took %llu msec).\n",
                          openRequests_, consumer.getNamespace().c_str(),
                          static_cast<unsigned long long>(
                              Timeval::differenceMs(response.finished, response.started))));
    }

    TestWMIConnectionConsumer consumers_[kConsumers];
    TestWMIConnectionConsumer ipv6_;
    int openRequests_ = 0;
};

// ---- Check 2: the configuration of this installation

void checkConfiguration() {
    MorvaxWMIConfiguration configuration("default");
    print("Starting...\n");
    while (const WMIQueryEntry* entry = configuration.nextQuery()) {
        const uint64_t seconds = (entry->intervalMilliseconds + 999) / 1000;
        print(Str::printf("Config: id %s, interval %u, param %s, type %d, namespc %s\n",
                          entry->name.c_str(), static_cast<unsigned>(seconds),
                          entry->parameter.c_str(), static_cast<int>(entry->type),
                          entry->namespace_.c_str()));
        if (entry->type == WMIQueryEntry::TYPE_EVENT_LOG &&
            entry->name != Str("WinEventLog:") + entry->parameter) {
            failWith(1, "test_MorvaxWMIConfiguration: unexpected _id and/or _param value\n");
        }
    }
    print("End.\n");
}

// ---- Check 3: the manager over two fixed queries for a while

constexpr uint64_t kManagerRunMilliseconds = 5000;

void checkConnectionManager() {
    auto checkpointer = std::make_unique<WMICheckpointer>();
    // The test's queries keep no checkpoints; whether this store opens does not matter.
    checkpointer->init(1000, Pathname("."));
    TestWMIConfiguration configuration;
    auto manager = std::make_unique<WMIConnectionManager>();
    if (!manager->init(&configuration)) {
        failWith(1, "ERROR: Error configuring WMIConnectionManager\n");
    }
    WMIQueryHandlerBuilder::installFactories(checkpointer.get(), manager.get());
    std::fflush(stdout);
    manager->start();
    sleep(kManagerRunMilliseconds);
    manager->stop();
    manager->join();
    print(Str::printf("%s\n", manager->dumpQueue().c_str()));
    manager.reset();
    WMIQueryHandlerBuilder::clear();
}

// ---- Check 4: the schedule policies, for a person to read

enum PolicyEvent { WAIT_FOR_CONN, FAILURE, CONNECTED, WAIT_FOR_QUERY, BUSY, DATA_RECEIVED };

constexpr const char* kEventNames[] = {"waitForConn",  "error", "connected",
                                       "waitForQuery", "busy",  "dataReceived"};

struct PolicyStep {
    unsigned policy;
    PolicyEvent event;
    unsigned times;
};

// 45 steps: one server's stanza through its phases and into errors, then three stanzas on two
// other servers sharing and leaving their back-offs.
constexpr PolicyStep kPolicyScript[] = {
    {0, WAIT_FOR_CONN, 10}, {0, CONNECTED, 2},      {0, WAIT_FOR_QUERY, 2}, {0, FAILURE, 1},
    {0, WAIT_FOR_CONN, 2},  {0, CONNECTED, 1},      {0, WAIT_FOR_QUERY, 1}, {0, DATA_RECEIVED, 2},
    {0, FAILURE, 6},        {1, WAIT_FOR_CONN, 1},  {1, FAILURE, 1},        {3, FAILURE, 1},
    {3, FAILURE, 1},        {2, FAILURE, 1},        {1, FAILURE, 1},        {2, FAILURE, 1},
    {1, CONNECTED, 1},      {2, CONNECTED, 1},      {1, WAIT_FOR_QUERY, 1}, {2, WAIT_FOR_QUERY, 1},
    {1, WAIT_FOR_QUERY, 1}, {2, WAIT_FOR_QUERY, 1}, {1, WAIT_FOR_QUERY, 1}, {2, WAIT_FOR_QUERY, 1},
    {3, FAILURE, 1},        {1, FAILURE, 1},        {2, FAILURE, 1},
};

Timeval fire(IQueryHandlerSchedulePolicy& policy, PolicyEvent event) {
    switch (event) {
        case WAIT_FOR_CONN:
            return policy.onWaitForConn();
        case FAILURE:
            return policy.onError();
        case CONNECTED:
            return policy.onConnected();
        case WAIT_FOR_QUERY:
            return policy.onWaitForQuery();
        case BUSY:
            return policy.onBusy();
        case DATA_RECEIVED:
            return policy.onDataReceived();
    }
    return Timeval::MAX_TIME;
}

void checkSchedulePolicies() {
    WMITuning::process().initialBackoffMilliseconds = 5000;
    WMITuning::process().maxBackoffMilliseconds = 20000;

    TestWMIConfiguration configuration;
    WMIQueryEntry entry = *configuration.nextQuery();
    const char* const namespaces[] = {"\\\\host1\\root\\cimv2", "\\\\host2\\root\\cimv2",
                                      "\\\\host2\\root\\cimv2", "\\\\host3\\root\\cimv2"};
    std::vector<std::unique_ptr<DefaultQueryHandlerSchedulePolicy>> policies;
    for (const char* nameSpace : namespaces) {
        entry.namespace_ = nameSpace;
        policies.push_back(std::make_unique<DefaultQueryHandlerSchedulePolicy>(entry));
    }

    for (const PolicyStep& step : kPolicyScript) {
        DefaultQueryHandlerSchedulePolicy& policy = *policies[step.policy];
        for (unsigned i = 0; i < step.times; ++i) {
            const Timeval now = Timeval::now();
            const Timeval answer = fire(policy, step.event);
            const long long milliseconds =
                answer.isMax() || !now.isBefore(answer)
                    ? -1
                    : static_cast<long long>(Timeval::differenceMs(answer, now));
            print(Str::printf("Policy %2u, event %-14s: %6lld\n", step.policy,
                              kEventNames[step.event], milliseconds));
            // The next event takes a new step instead of the deadline just drawn.
            const Timeval present = Timeval::now();
            policy.pollSchedule().setDeadline(present);
            policy.errorSchedule().setDeadline(present);
        }
    }
}

// ---- Check 5: the query analysis

constexpr const char* kAcceptedQueries[] = {
    "SELECT * FROM MainClass WHERE StrongEmbedObj.INVALID = 70011",
    "SELECT * FROM Win32_LogicalDisk WHERE FileSystem IS NULL",
    "SELECT * FROM meta_class WHERE __Class = \"Win32_LogicalDisk\"",
    ("select BytesSentPerSec, BytesTotalPerSec, CurrentBandwidth from "
     "Win32_PerfFormattedData_Tcpip_NetworkInterface"),
    "SELECT * FROM Meta_Class where __CLASS like \"%Win32_PerfFormattedData_%\"",
    "SeLeCT AVAILABLEMBytes fROm Win32_PerfFormattedData_PerfOS_Memory",
    ("SELECT targetInstance.Name FROM __InstanceCreationEvent WHERE targetinstance isa "
     "\"Win32_Process\""),
    ("select * from __InstanceOperationEvent within 1 where TargetInstance ISA 'Win32_PnPEntity' "
     "and TargetInstance.Description='USB Mass Storage Device'"),
    "select * from __InstanceCreationEvent WITHIN 10 where TargetInstance isa 'Win32_Process'",
    ("select CommittedBytes, AvailableBytes, PercentCommittedBytesInUse, Caption from "
     "Win32_PerfFormattedData_PerfOS_Memory"),
    "SELECT * FROM EmailEvent GROUP WITHIN 300 BY event",
    ("SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA \"Win32_NTLogEvent\" GROUP "
     "WITHIN 600 BY TargetInstance.SourceName HAVING NumberOfEvents > 25"),
};

constexpr const char* kInvalidQueries[] = {
    "select from Win32_PerfFormattedData_Tcpip_NetworkInterface",
    "select * from Win32_PerfFormattedData_Tcpip_NetworkInterface where x = 't' or",
    "select * from Win32_PerfFormattedData wher x = 't'",
};

constexpr const char* kUnsupportedQueries[] = {
    "REFERENCES OF {Adapter=\"AHA-294X\"} WHERE RequiredQualifier = AdapterTag",
    "ASSOCIATORS OF {Win32_LogicalDisk.DeviceID=\"C:\"}",
};

void complain(const char* format, const char* query) {
    const Str text = Str::printf(format, query);
    std::fwrite(text.data(), 1, text.size(), stderr);
}

void checkQueryAnalysis() {
    QueryAnalyzer analyzer;
    for (const char* query : kAcceptedQueries) {
        if (analyzer.isValidQuery(query)) {
            if (!analyzer.isSupportedQuery(query)) {
                complain("'%s' is not a supported query.\n", query);
            }
            if (!analyzer.analyzeQuery(query) || analyzer.analysis().empty()) {
                complain("'%s' could not be parsed.\n", query);
            }
        } else if (!analyzer.isValidEventQuery(query)) {
            complain("'%s' is not a valid query.\n", query);
        }
    }
    for (const char* query : kInvalidQueries) {
        if (analyzer.isValidQuery(query)) {
            complain("'%s' is not a valid query. Error in parser.\n", query);
        }
    }
    for (const char* query : kUnsupportedQueries) {
        if (analyzer.isSupportedQuery(query)) {
            complain("'%s' is not a supported query. Error in parser.\n", query);
        }
    }
    std::fflush(stderr);
}

}  // namespace

int runSelfTest() {
    RunPreamble preamble;
    FactoryCheck().run();
    checkConfiguration();
    checkConnectionManager();
    checkSchedulePolicies();
    checkQueryAnalysis();
    std::fflush(stdout);
    return 0;
}

}  // namespace morvax
