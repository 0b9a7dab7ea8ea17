#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

#include "ScriptedWmi.h"
#include "input/DefaultWMIDataOutputter.h"
#include "input/IWMIConnector.h"
#include "input/OneShotQueryHandlerSchedulePolicy.h"
#include "input/OneShotWMIConnector.h"
#include "input/WMIConnection.h"
#include "input/WMIConnectionFactory.h"
#include "input/WMIQueryHandler.h"
#include "input/WMIQueryHandlerBuilder.h"
#include "util/thread/EmptyMainThread.h"
#include "util/time/MonotonicTime.h"
#include "util/time/Sleep.h"

namespace morvax {
namespace {

using conntest::LogCapture;
using conntest::numberedObject;
using conntest::RecordingProcessor;
using conntest::ScriptedLocator;
using conntest::ScriptedServices;

bool waitFor(const std::function<bool()>& condition, uint64_t limitMs = 10000) {
    const uint64_t end = MonotonicTime::now() + limitMs;
    while (!condition()) {
        if (MonotonicTime::now() > end) {
            return false;
        }
        morvax::sleep(10);
    }
    return true;
}

// Answers a request at once, as the service run's loop would between two steps.
class ImmediateConnector : public IWMIConnector {
  public:
    explicit ImmediateConnector(std::shared_ptr<ScriptedServices> services)
        : services_(std::move(services)) {}
    void requestConnection(IWMIConnectionConsumer* consumer) override {
        ++requests;
        if (wmi::failed(status)) {
            consumer->connectionDone(nullptr, status);
        } else {
            consumer->connectionDone(services_, status);
        }
    }
    int requests = 0;
    wmi::HRESULT status = 0;

  private:
    std::shared_ptr<ScriptedServices> services_;
};

// A policy that says which callback was asked; every answer is "now" except never when told.
class RecordingPolicy : public IQueryHandlerSchedulePolicy {
  public:
    explicit RecordingPolicy(std::vector<std::string>* calls) : calls_(calls) {}
    Timeval onWaitForConn() override { return note("waitForConn"); }
    Timeval onError() override { return note("error"); }
    Timeval onConnected() override { return note("connected"); }
    Timeval onWaitForQuery() override { return note("waitForQuery"); }
    Timeval onBusy() override { return note("busy"); }
    Timeval onDataReceived() override { return note("data"); }

  private:
    Timeval note(const char* what) {
        calls_->push_back(what);
        return Timeval(1);
    }
    std::vector<std::string>* calls_;
};

struct HandlerRig {
    explicit HandlerRig(const char* wql = "SELECT * FROM X", bool notification = false)
        : connector(services), connection("root\\cimv2") {
        auto owned = std::make_unique<RecordingProcessor>(Str(wql), notification);
        processor = owned.get();
        handler = std::make_unique<WMIQueryHandler>(
            &connection, std::make_unique<RecordingPolicy>(&calls), std::move(owned), &connector);
    }
    void step(int n = 1) {
        for (int i = 0; i < n; ++i) {
            handler->advance();
        }
    }
    std::shared_ptr<ScriptedServices> services = std::make_shared<ScriptedServices>();
    ImmediateConnector connector;
    WMIConnection connection;
    RecordingProcessor* processor = nullptr;
    std::vector<std::string> calls;
    std::unique_ptr<WMIQueryHandler> handler;
};

TEST(WMIQueryHandlerTest, AQueryRunsThroughEveryStateAndDrainsInBatchesOf100) {
    HandlerRig rig;
    for (int i = 0; i < 250; ++i) {
        rig.services->script->ready.push_back(numberedObject(i));
    }
    EXPECT_EQ(rig.connection.state(), READY);
    rig.step();
    EXPECT_EQ(rig.connection.state(), CONNECTING);
    EXPECT_EQ(rig.connector.requests, 1);
    rig.step();
    EXPECT_EQ(rig.connection.state(), CONNECTED);
    EXPECT_EQ(rig.handler->describeState(), "CONNECTED    rec: SELECT * FROM X");
    rig.step();
    EXPECT_EQ(rig.connection.state(), QUERIED);
    EXPECT_EQ(rig.services->plainQueries, std::vector<std::u16string>{u"SELECT * FROM X"});
    rig.step();
    EXPECT_EQ(rig.connection.state(), CONNECTED);
    EXPECT_FALSE(rig.connection.hasEnumerator());
    EXPECT_EQ(rig.calls,
              (std::vector<std::string>{"waitForConn", "connected", "waitForQuery", "data"}));
    ASSERT_EQ(rig.processor->batches.size(), 3u);
    EXPECT_EQ(rig.processor->batches[0].size(), 100u);
    EXPECT_EQ(rig.processor->batches[1].size(), 100u);
    EXPECT_EQ(rig.processor->batches[2].size(), 50u);
    EXPECT_EQ(rig.processor->batches[2].back().at(u"N"), u"249");

    // The connection stays: the next run queries again without connecting.
    rig.step();
    EXPECT_EQ(rig.connection.state(), QUERIED);
    EXPECT_EQ(rig.connector.requests, 1);
}

TEST(WMIQueryHandlerTest, AnEmptyResultIsOneEmptyBatchAndExactly100IsNone) {
    HandlerRig empty;
    empty.step(4);
    ASSERT_EQ(empty.processor->batches.size(), 1u);
    EXPECT_TRUE(empty.processor->batches[0].empty());

    HandlerRig hundred;
    for (int i = 0; i < 100; ++i) {
        hundred.services->script->ready.push_back(numberedObject(i));
    }
    hundred.step(4);
    ASSERT_EQ(hundred.processor->batches.size(), 1u);
    EXPECT_EQ(hundred.processor->batches[0].size(), 100u);
    EXPECT_EQ(hundred.connection.state(), CONNECTED);
}

TEST(WMIQueryHandlerTest, NothingReadyYetKeepsTheQueryAndPollsBusy) {
    HandlerRig rig("SELECT * FROM __InstanceCreationEvent", true);
    rig.services->script->endStatus = wmi::WBEM_S_TIMEDOUT;
    rig.step(4);
    EXPECT_EQ(rig.connection.state(), QUERIED);
    EXPECT_EQ(rig.calls.back(), "busy");
    EXPECT_EQ(rig.services->notificationQueries.size(), 1u);
    EXPECT_TRUE(rig.processor->batches.empty());
    rig.services->script->ready.push_back(numberedObject(7));
    rig.step();
    EXPECT_EQ(rig.connection.state(), QUERIED);
    ASSERT_EQ(rig.processor->batches.size(), 1u);
    EXPECT_EQ(rig.processor->batches[0][0].at(u"N"), u"7");

    // A stop makes the read loop leave before it asks the provider again.
    rig.services->script->ready.push_back(numberedObject(8));
    const int callsBefore = rig.services->script->calls;
    rig.connection.cancel();
    rig.step();
    EXPECT_EQ(rig.services->script->calls, callsBefore);
    EXPECT_EQ(rig.processor->batches.size(), 1u);
}

TEST(WMIQueryHandlerTest, AFailingReadOrQueryGoesBackToConnectingWithAnErrorLine) {
    LogCapture log;
    HandlerRig rig;
    rig.services->script->ready.push_back(numberedObject(1));
    rig.services->script->endStatus = wmi::WBEM_E_TRANSPORT_FAILURE;
    rig.step(3);
    rig.step();
    EXPECT_EQ(rig.connection.state(), READY_AFTER_ERROR);
    EXPECT_EQ(rig.connection.status(), wmi::WBEM_E_TRANSPORT_FAILURE);
    EXPECT_EQ(rig.calls.back(), "error");
    EXPECT_TRUE(
        log.contains("ERROR Error occurred while trying to retrieve results from a WMI "
                     "query (error=\""));
    EXPECT_TRUE(log.contains("HRESULT=80041015) (rec: SELECT * FROM X)"));
    EXPECT_TRUE(log.contains("INFO Will retry connection to WMI provider after "));
    // The batch before the failure was written.
    EXPECT_EQ(rig.processor->batches.size(), 1u);

    // A new connection is asked for; a failing ExecQuery drops it again.
    rig.services->execStatus = wmi::WBEM_E_INVALID_QUERY;
    rig.step();
    EXPECT_EQ(rig.connection.state(), CONNECTING_AFTER_ERROR);
    EXPECT_EQ(rig.connector.requests, 2);
    rig.step(2);
    EXPECT_EQ(rig.connection.state(), READY_AFTER_ERROR);
    EXPECT_FALSE(rig.connection.isConnected());
    EXPECT_TRUE(log.contains("ERROR Executing query failed (query=\"SELECT * FROM X\") (error="));
}

TEST(WMIQueryHandlerTest, AWMIExceptionWhileConvertingFailsTheRead) {
    HandlerRig rig;
    rig.processor->throwAfterBatches = 0;
    rig.services->script->ready.push_back(numberedObject(1));
    rig.step(4);
    EXPECT_EQ(rig.connection.state(), READY_AFTER_ERROR);
}

TEST(WMIQueryHandlerTest, TwoHandlersOnOneConnectionTakeTurns) {
    HandlerRig rig;
    for (int i = 0; i < 3; ++i) {
        rig.services->script->ready.push_back(numberedObject(i));
    }
    rig.services->script->endStatus = wmi::WBEM_S_TIMEDOUT;
    std::vector<std::string> otherCalls;
    auto otherOwned = std::make_unique<RecordingProcessor>(Str("SELECT * FROM Y"));
    RecordingProcessor* other = otherOwned.get();
    WMIQueryHandler second(&rig.connection, std::make_unique<RecordingPolicy>(&otherCalls),
                           std::move(otherOwned), &rig.connector);

    rig.step(4);  // the first query runs, delivers three and has no end yet
    EXPECT_EQ(rig.connection.state(), QUERIED);
    second.advance();
    EXPECT_EQ(otherCalls.back(), "busy");
    EXPECT_TRUE(other->batches.empty());
    EXPECT_EQ(rig.processor->batches.size(), 1u);

    rig.services->script->endStatus = wmi::WBEM_S_FALSE;
    rig.step();
    EXPECT_EQ(rig.connection.state(), CONNECTED);
    second.advance();
    EXPECT_EQ(rig.connection.state(), QUERIED);
    EXPECT_EQ(rig.services->plainQueries.back(), u"SELECT * FROM Y");
}

TEST(WMIQueryHandlerTest, TheOneShotPolicyGivesUpAfterOneFailedConnection) {
    LogCapture log;
    std::shared_ptr<ScriptedServices> services = std::make_shared<ScriptedServices>();
    ImmediateConnector connector(services);
    connector.status = wmi::WBEM_E_INVALID_NAMESPACE;
    WMIConnection connection("root\\nosuch");
    WMIQueryHandler handler(&connection, std::make_unique<OneShotQueryHandlerSchedulePolicy>(),
                            std::make_unique<RecordingProcessor>(Str("SELECT * FROM X")),
                            &connector);
    EXPECT_FALSE(handler.advance().isMax());
    EXPECT_TRUE(handler.advance().isMax());
    EXPECT_TRUE(
        log.contains("ERROR Giving up attempt to connect to WMI provider after maximum "
                     "number of retries at maximum backoff time (rec: SELECT * FROM X)"));
}

class FactoryTest : public ::testing::Test {
  protected:
    EmptyMainThread mainThread_;
};

TEST_F(FactoryTest, ConnectsOneAtATimeInOrderOfRequest) {
    LogCapture log;
    ScriptedLocator locator;
    locator.statuses[u"\\\\bad\\root\\cimv2"] = wmi::RPC_E_SERVER_UNAVAILABLE;
    WMIConnectionFactory factory(locator);
    WMIConnection good("root\\cimv2");
    WMIConnection bad("\\\\bad\\root\\cimv2");
    locator.hold();
    factory.start();
    factory.request(&bad);
    factory.request(&good);
    ASSERT_TRUE(waitFor([&] { return locator.inside() == 1; }));
    WMIConnectionFactory::ConnectionResponse response;
    EXPECT_FALSE(factory.pollResponse(response));
    locator.release();

    std::vector<WMIConnectionFactory::ConnectionResponse> responses;
    ASSERT_TRUE(waitFor([&] {
        while (factory.pollResponse(response)) {
            responses.push_back(response);
        }
        return responses.size() == 2;
    }));
    EXPECT_EQ(responses[0].consumer, &bad);
    EXPECT_EQ(responses[0].status, wmi::RPC_E_SERVER_UNAVAILABLE);
    EXPECT_EQ(responses[0].services, nullptr);
    EXPECT_EQ(responses[1].consumer, &good);
    EXPECT_NE(responses[1].services, nullptr);
    EXPECT_TRUE(responses[1].started.isNotAfter(responses[1].finished));
    EXPECT_TRUE(
        log.contains("ERROR Unable to connect to WMI namespace \"\\\\bad\\root\\cimv2\" "
                     "(attempt to connect took "));
    EXPECT_TRUE(log.contains("HRESULT=800706BA)"));
    EXPECT_TRUE(log.contains("INFO Connected to WMI provider root\\cimv2 (connecting took "));
    factory.stop();
    factory.join();
}

TEST_F(FactoryTest, AStopWaitsForTheRunningAttemptAndDropsTheRest) {
    ScriptedLocator locator;
    WMIConnectionFactory factory(locator);
    WMIConnection first("a");
    WMIConnection second("b");
    locator.hold();
    factory.start();
    factory.request(&first);
    factory.request(&second);
    ASSERT_TRUE(waitFor([&] { return locator.inside() == 1; }));
    factory.stop();
    locator.release();
    factory.join();
    EXPECT_EQ(locator.calls(), 1);
    WMIConnectionFactory::ConnectionResponse response;
    EXPECT_FALSE(factory.pollResponse(response));
}

TEST_F(FactoryTest, TheOneShotConnectorWaitsForItsAnswer) {
    ScriptedLocator locator;
    WMIConnectionFactory factory(locator);
    factory.start();
    WMIConnection connection("root\\cimv2");
    OneShotWMIConnector connector(connection, factory);
    connector.requestConnection(&connection);
    EXPECT_TRUE(connection.hasAnswer());
    EXPECT_TRUE(connection.isConnected());
    factory.stop();
    factory.join();
}

class NullProcessorFactory : public WMIQueryProcessorFactory {
  public:
    std::unique_ptr<WMIQueryProcessor> create(const WMIQueryEntry&) override { return nullptr; }
};

class RecordingProcessorFactory : public WMIQueryProcessorFactory {
  public:
    std::unique_ptr<WMIQueryProcessor> create(const WMIQueryEntry& entry) override {
        return std::make_unique<RecordingProcessor>(entry.parameter);
    }
};

class OneShotPolicyFactory : public IQueryHandlerSchedulePolicyFactory {
  public:
    std::unique_ptr<IQueryHandlerSchedulePolicy> createPolicy(const WMIQueryEntry&) override {
        return std::make_unique<OneShotQueryHandlerSchedulePolicy>();
    }
};

TEST(WMIQueryHandlerBuilderTest, RefusesWithoutFactoriesAndWiresTheSharedOutputter) {
    WMIQueryHandlerBuilder::clear();
    WMIConnection connection("root\\cimv2");
    WMIQueryEntry entry;
    entry.parameter = "SELECT * FROM X";
    try {
        WMIQueryHandlerBuilder::createWMIQueryHandler(&connection, entry);
        FAIL();
    } catch (const BaseException& e) {
        EXPECT_STREQ(e.what(),
                     "WMIQueryHandlerBuilder::createWMIQueryHandler: not all policy factories "
                     "have been assigned; cannot instantiate a WMIQueryHandler");
    }
    WMIQueryHandlerBuilder::setPolicyFactory(std::make_unique<OneShotPolicyFactory>());
    WMIQueryHandlerBuilder::setProcessorFactory(0, std::make_unique<NullProcessorFactory>());
    std::shared_ptr<ScriptedServices> services = std::make_shared<ScriptedServices>();
    ImmediateConnector connector(services);
    WMIQueryHandlerBuilder::setConnector(&connector);
    try {
        WMIQueryHandlerBuilder::createWMIQueryHandler(&connection, entry);
        FAIL();
    } catch (const BaseException& e) {
        EXPECT_STREQ(e.what(),
                     "WMIQueryHandlerBuilder::createWMIQueryHandler: factories did not generate "
                     "all necessary policies to generate a WMIQueryHandler object");
    }
    WMIQueryHandlerBuilder::setProcessorFactory(0, std::make_unique<RecordingProcessorFactory>());
    std::unique_ptr<WMIQueryHandler> handler =
        WMIQueryHandlerBuilder::createWMIQueryHandler(&connection, entry);
    EXPECT_EQ(handler->processor()->outputter(), &DefaultWMIDataOutputter::instance());
    entry.type = WMIQueryEntry::TYPE_EVENT_LOG;
    EXPECT_THROW(WMIQueryHandlerBuilder::createWMIQueryHandler(&connection, entry), BaseException);
    WMIQueryHandlerBuilder::clear();
}

}  // namespace
}  // namespace morvax
