#pragma once

#include "input/IWMIConnectionConsumer.h"

namespace morvax {

// A request of the self-test: a namespace and whether connecting to it must succeed. The
// answer is read from the factory's responses, so connectionDone keeps nothing.
class TestWMIConnectionConsumer : public IWMIConnectionConsumer {
  public:
    TestWMIConnectionConsumer(Str nameSpace, bool expectSuccess)
        : namespace_(std::move(nameSpace)), expectSuccess_(expectSuccess) {}

    const Str& getNamespace() const override { return namespace_; }
    void connectionDone(std::shared_ptr<wmi::Services>, wmi::HRESULT) override {}

    bool expectSuccess() const { return expectSuccess_; }

  private:
    Str namespace_;
    bool expectSuccess_;
};

}  // namespace morvax
