#pragma once

// Scripted stand-ins for the WMI layer and a log capture, for tests of connections and handlers.

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "input/WMIException.h"
#include "support/LogCapture.h"
#include "input/WMIQueryProcessor.h"
#include "util/base/Str.h"
#include "util/log/Logger.h"
#include "wmi/Wmi.h"

namespace morvax::conntest {

// An object with string properties.
class ScriptedObject : public wmi::ClassObject {
  public:
    explicit ScriptedObject(std::vector<std::pair<std::u16string, std::u16string>> properties)
        : properties_(std::move(properties)) {}
    wmi::HRESULT getNames(std::vector<std::u16string>& out) override {
        for (const auto& p : properties_) {
            out.push_back(p.first);
        }
        return 0;
    }
    wmi::HRESULT get(const std::u16string& name, wmi::Variant& out) override {
        for (const auto& p : properties_) {
            if (p.first == name) {
                out = wmi::Variant::fromString(p.second);
                return 0;
            }
        }
        return wmi::WBEM_E_NOT_FOUND;
    }

  private:
    std::vector<std::pair<std::u16string, std::u16string>> properties_;
};

inline std::shared_ptr<wmi::ClassObject> numberedObject(int n) {
    return std::make_shared<ScriptedObject>(std::vector<std::pair<std::u16string, std::u16string>>{
        {u"N", Str::toWide(Str().appendFormat("%d", n))}});
}

// Delivers `ready` objects, then answers with `endStatus` (WBEM_S_FALSE: the end;
// WBEM_S_TIMEDOUT: nothing yet; a failure). Objects appended later are delivered by later calls.
class ScriptedEnumerator : public wmi::Enumerator {
  public:
    struct Script {
        std::deque<std::shared_ptr<wmi::ClassObject>> ready;
        wmi::HRESULT endStatus = wmi::WBEM_S_FALSE;
        int calls = 0;
    };
    explicit ScriptedEnumerator(std::shared_ptr<Script> script) : script_(std::move(script)) {}
    wmi::HRESULT next(long, unsigned count,
                      std::vector<std::shared_ptr<wmi::ClassObject>>& out) override {
        ++script_->calls;
        while (count > 0 && !script_->ready.empty()) {
            out.push_back(script_->ready.front());
            script_->ready.pop_front();
            --count;
        }
        if (count == 0) {
            return 0;
        }
        if (wmi::failed(script_->endStatus)) {
            return out.empty() ? script_->endStatus : wmi::WBEM_S_NO_ERROR;
        }
        return script_->endStatus;
    }

  private:
    std::shared_ptr<Script> script_;
};

class ScriptedServices : public wmi::Services {
  public:
    wmi::HRESULT execStatus = 0;
    std::shared_ptr<ScriptedEnumerator::Script> script =
        std::make_shared<ScriptedEnumerator::Script>();
    std::vector<std::u16string> plainQueries;
    std::vector<std::u16string> notificationQueries;

    wmi::HRESULT execQuery(const std::u16string& wql,
                           std::unique_ptr<wmi::Enumerator>& out) override {
        plainQueries.push_back(wql);
        return start(out);
    }
    wmi::HRESULT execNotificationQuery(const std::u16string& wql,
                                       std::unique_ptr<wmi::Enumerator>& out) override {
        notificationQueries.push_back(wql);
        return start(out);
    }

  private:
    wmi::HRESULT start(std::unique_ptr<wmi::Enumerator>& out) {
        if (wmi::failed(execStatus)) {
            return execStatus;
        }
        out = std::make_unique<ScriptedEnumerator>(script);
        return 0;
    }
};

// Answers connectServer with the status of its namespace (0 by default), optionally held until
// released, and counts the calls.
class ScriptedLocator : public wmi::Locator {
  public:
    std::map<std::u16string, wmi::HRESULT> statuses;
    std::shared_ptr<ScriptedServices> services = std::make_shared<ScriptedServices>();

    void hold() {
        std::lock_guard<std::mutex> lock(mutex_);
        held_ = true;
    }
    void release() {
        std::lock_guard<std::mutex> lock(mutex_);
        held_ = false;
        wake_.notify_all();
    }
    int calls() const { return calls_.load(); }
    int inside() const { return inside_.load(); }

    wmi::HRESULT connectServer(const std::u16string& ns,
                               std::shared_ptr<wmi::Services>& out) override {
        ++calls_;
        ++inside_;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait(lock, [this] { return !held_; });
        }
        --inside_;
        auto it = statuses.find(ns);
        const wmi::HRESULT status = it == statuses.end() ? 0 : it->second;
        if (!wmi::failed(status)) {
            out = services;
        }
        return status;
    }

  private:
    std::mutex mutex_;
    std::condition_variable wake_;
    bool held_ = false;
    std::atomic<int> calls_{0};
    std::atomic<int> inside_{0};
};

// A processor that keeps what it is given.
class RecordingProcessor : public WMIQueryProcessor {
  public:
    explicit RecordingProcessor(Str wql, bool notification = false) : wql_(std::move(wql)) {
        if (notification) {
            queryRun_ = &runNotificationQuery;
        }
    }
    Str getWql() override { return wql_; }
    Str describe() override { return Str("rec: ").append(wql_); }
    void writeData(ResultBatch::iterator first, ResultBatch::iterator last) override {
        batches.emplace_back(first, last);
        if (throwAfterBatches >= 0 && static_cast<int>(batches.size()) > throwAfterBatches) {
            throwNow();
        }
    }
    std::vector<std::vector<EventRecord>> batches;
    int throwAfterBatches = -1;

  private:
    void throwNow() { throw WMIException(wmi::WBEM_E_FAILED, "scripted failure", StrSegment()); }
    Str wql_;
};

using morvax::test::LogCapture;

}  // namespace morvax::conntest
