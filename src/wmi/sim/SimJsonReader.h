#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "util/base/Str.h"
#include "wmi/Wmi.h"
#include "wmi/sim/SimInstance.h"
#include "wmi/sim/SimNamespace.h"

namespace morvax::wmi {

// Turns JSON of world and record files into values and instances. Declared properties take
// their declared type; anything else takes its type from the JSON. Problems are collected as
// texts for the caller to report with the place they come from; the value concerned is null.
class SimJsonReader {
  public:
    using Json = nlohmann::ordered_json;

    // How deep arrays and embedded objects may nest in one value; a deeper one is refused, so
    // that no file can exhaust the stack of the walk.
    static constexpr int kMaxNesting = 32;

    // `ns` (may be null) gives the classes of embedded objects; `nameSpace` is their namespace.
    SimJsonReader(const SimNamespace* ns, std::u16string nameSpace)
        : ns_(ns), nameSpace_(std::move(nameSpace)) {}

    // A value of type `type`; false, with the reason in `why` and `out` null, when it does not
    // fit.
    bool value(const Json& json, const SimType& type, Variant& out, Str& why) const;
    // A value that no declaration covers.
    bool untyped(const Json& json, Variant& out, Str& why) const;

    // An instance of `cls` from the keys of `object`: declared properties that the object lacks
    // are null; keys that `cls` does not declare are reported and left out, except those in
    // `ignore` (lower case).
    std::shared_ptr<const SimInstance> instance(const std::shared_ptr<const SimClass>& cls,
                                                const Json& object, std::vector<Str>& problems,
                                                const std::vector<const char*>& ignore = {}) const;
    // The same, as the values alone.
    std::vector<Variant> values(const SimClass& cls, const Json& object, std::vector<Str>& problems,
                                const std::vector<const char*>& ignore = {}) const;
    // An embedded object: of the class its "__CLASS" key names when the namespace has it, else
    // of a class made from its keys.
    std::shared_ptr<const SimInstance> embedded(const Json& object,
                                                std::vector<Str>& problems) const;

    static std::u16string wide(const std::string& utf8);
    // Line `number` of record file `file` as a JSON object; false, reported with file and line,
    // when it is not one.
    static bool objectOfLine(const std::filesystem::path& file, uint32_t number, StrSegment text,
                             Json& out);

  private:
    // Counts a level of nesting for the life of the object; `ok` is false beyond the limit.
    class Nesting {
      public:
        explicit Nesting(int& depth) : depth_(depth) { ++depth_; }
        ~Nesting() { --depth_; }
        Nesting(const Nesting&) = delete;
        Nesting& operator=(const Nesting&) = delete;
        bool ok(Str& why) const;

      private:
        int& depth_;
    };

    const SimNamespace* ns_;
    std::u16string nameSpace_;
    mutable int depth_ = 0;
};

}  // namespace morvax::wmi
