#include <gtest/gtest.h>

#include "unit/wmi/SimTestSupport.h"
#include "wmi/sim/SimLocator.h"

namespace morvax::wmi {
namespace {

using namespace simtest;

class SimQueryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(locator_.connectServer(u("root\\cimv2"), services_), WBEM_S_NO_ERROR);
    }

    Objects query(const std::string& wql, HRESULT expected = WBEM_S_FALSE) {
        Objects objects;
        EXPECT_EQ(runQuery(*services_, wql, objects), expected) << wql;
        return objects;
    }

    std::vector<std::string> column(const std::string& wql, const std::string& property) {
        std::vector<std::string> out;
        for (auto& object : query(wql)) {
            out.push_back(text(*object, property));
        }
        return out;
    }

    SimLocator locator_{fixture("basic")};
    std::shared_ptr<Services> services_;
};

TEST_F(SimQueryTest, PropertiesComeInDeclaredOrderWithWmiVariantTypes) {
    Objects objects = query("SELECT * FROM Win32_Memory");
    ASSERT_EQ(objects.size(), 2u);
    ClassObject& memory = *objects[0];
    EXPECT_EQ(names(memory),
              (std::vector<std::string>{"Caption", "AvailableBytes", "Comment", "Total", "Offset",
                                        "Letter", "Enabled", "Ratio", "Banks", "Installed", "Exact",
                                        "Wide"}));
    struct Expected {
        const char* name;
        uint16_t vt;
        const char* value;
    };
    for (const Expected& e : std::initializer_list<Expected>{
             {"Caption", VT_BSTR, "Memory"},
             {"AvailableBytes", VT_I4, "1048576"},
             {"Comment", VT_NULL, "<null>"},
             {"Total", VT_BSTR, "18446744073709551615"},
             {"Offset", VT_I2, "-5"},
             {"Letter", VT_I2, "67"},
             {"Enabled", VT_BOOL, "-1"},
             {"Ratio", VT_R8, "0.25"},
             {"Installed", VT_BSTR, "20240102030405.000000+000"},
             {"Exact", VT_UI4, "4000000000"},
             {"Wide", VT_I8, "-9000000000"},
         }) {
        EXPECT_EQ(get(memory, e.name).vt, e.vt) << e.name;
        EXPECT_EQ(text(memory, e.name), e.value) << e.name;
    }
    Variant banks = get(memory, "banks");
    ASSERT_EQ(banks.vt, VT_ARRAY | VT_BSTR);
    ASSERT_EQ(banks.array.size(), 2u);
    EXPECT_EQ(utf8(banks.array[1].str), "B");

    // A uint32 beyond the signed range keeps its bits in VT_I4, as WMI delivers it; properties
    // the instance leaves out are null.
    ClassObject& spare = *objects[1];
    EXPECT_EQ(get(spare, "AvailableBytes").i, -1);
    EXPECT_EQ(get(spare, "Total").vt, VT_NULL);
    EXPECT_EQ(get(spare, "NoSuchProperty").vt, VT_EMPTY);
}

TEST_F(SimQueryTest, ClassesFollowTheirSuperclass) {
    Objects objects = query("SELECT * FROM CIM_Memory");
    ASSERT_EQ(objects.size(), 2u);
    EXPECT_EQ(text(*objects[0], "__CLASS"), "Win32_Memory");
    EXPECT_EQ(text(*objects[0], "__Class"), "Win32_Memory");
    EXPECT_EQ(text(*objects[0], "__SUPERCLASS"), "CIM_Memory");
    EXPECT_EQ(query("SELECT * FROM Win32_Memory WHERE __this ISA \"cim_memory\"").size(), 2u);
    EXPECT_EQ(query("SELECT * FROM Win32_Service WHERE Process ISA 'CIM_Memory'").size(), 1u);
    EXPECT_EQ(query("SELECT * FROM MailEvent").size(), 0u);
}

TEST_F(SimQueryTest, WhereAndSelectListShapeTheResults) {
    EXPECT_EQ(column("SELECT Name FROM Win32_Service WHERE State = 'RUNNING'", "Name"),
              (std::vector<std::string>{"alpha", "Gamma"}));
    EXPECT_EQ(column("SELECT * FROM Win32_Service WHERE Name LIKE '[a-b]%' AND NOT "
                     "State <> 'Stopped'",
                     "Name"),
              (std::vector<std::string>{"beta"}));
    EXPECT_EQ(column("SELECT * FROM Win32_Service WHERE Process.AvailableBytes > 5", "Name"),
              (std::vector<std::string>{"alpha"}));
    EXPECT_EQ(column("SELECT * FROM Win32_Memory WHERE Comment IS NULL", "Caption"),
              (std::vector<std::string>{"Memory", "Spare"}));

    // Only selected properties show, in the class's order; WHERE may test the others.
    Objects objects = query("select state, NAME from win32_service where Name = 'beta'");
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(names(*objects[0]), (std::vector<std::string>{"Name", "State"}));
    EXPECT_EQ(get(*objects[0], "Process").vt, VT_EMPTY);
    EXPECT_EQ(text(*objects[0], "__CLASS"), "Win32_Service");

    // Inside an embedded object only what the list names.
    objects = query("SELECT Process.Caption FROM Win32_Service WHERE Name = 'alpha'");
    ASSERT_EQ(objects.size(), 1u);
    Variant process = get(*objects[0], "Process");
    ASSERT_EQ(process.vt, VT_UNKNOWN);
    EXPECT_EQ(names(*process.object), (std::vector<std::string>{"Caption"}));
    EXPECT_EQ(text(*process.object, "Caption"), "inner");
    EXPECT_EQ(text(*process.object, "__CLASS"), "Win32_Memory");
}

TEST_F(SimQueryTest, GeneratedInstancesAreDeterministicAndBatched) {
    std::unique_ptr<Enumerator> enumerator;
    ASSERT_EQ(services_->execQuery(u("SELECT * FROM Sample WHERE Index <= 200"), enumerator),
              WBEM_S_NO_ERROR);
    Objects objects;
    EXPECT_EQ(enumerator->next(0, 100, objects), WBEM_S_NO_ERROR);
    EXPECT_EQ(enumerator->next(0, 100, objects), WBEM_S_NO_ERROR);
    // Exactly the last batch full: the end comes with the next call, and no object.
    EXPECT_EQ(enumerator->next(0, 100, objects), WBEM_S_FALSE);
    EXPECT_EQ(enumerator->next(0, 100, objects), WBEM_S_FALSE);
    ASSERT_EQ(objects.size(), 200u);  // Index is the instance number plus one
    EXPECT_EQ(text(*objects[0], "Name"), "Name_0");
    EXPECT_EQ(text(*objects[199], "Name"), "Name_199");
    EXPECT_EQ(text(*objects[199], "Index"), "200");

    // A reader that lets each batch go but one object: what it let go of may be made again,
    // never what it holds.
    ASSERT_EQ(services_->execQuery(u("SELECT * FROM Sample WHERE Index <= 250"), enumerator),
              WBEM_S_NO_ERROR);
    std::shared_ptr<ClassObject> held;
    for (size_t first = 0; first < 250; first += 100) {
        Objects batch;
        enumerator->next(0, 100, batch);
        ASSERT_EQ(batch.size(), std::min<size_t>(100, 250 - first));
        for (size_t i = 0; i < batch.size(); ++i) {
            EXPECT_EQ(text(*batch[i], "Name"), "Name_" + std::to_string(first + i));
        }
        held = held ? held : batch[7];
    }
    EXPECT_EQ(text(*held, "Name"), "Name_7");

    Objects again = query("SELECT Name FROM Sample WHERE Name = 'Name_42'");
    ASSERT_EQ(again.size(), 1u);
    EXPECT_EQ(names(*again[0]), (std::vector<std::string>{"Name"}));
}

TEST_F(SimQueryTest, OneVariantAndOneNameListServeObjectAfterObject) {
    Objects objects = query("SELECT * FROM Sample WHERE Index <= 2");
    ASSERT_EQ(objects.size(), 2u);
    Variant value = Variant::fromString(u("a text longer than any of the values"));
    std::vector<std::u16string> names{u("stale"), u("names"), u("beyond"), u("the count")};
    for (size_t i = 0; i < objects.size(); ++i) {
        ASSERT_EQ(objects[i]->replaceNames(names), WBEM_S_NO_ERROR);
        EXPECT_EQ(names, (std::vector<std::u16string>{u("Name"), u("Index")}));
        // Names as the class spells them or not, a text after a number and the other way round.
        ASSERT_EQ(objects[i]->get(u("NAME"), value), WBEM_S_NO_ERROR);
        EXPECT_EQ(value.vt, VT_BSTR);
        EXPECT_EQ(utf8(value.str), "Name_" + std::to_string(i));
        ASSERT_EQ(objects[i]->get(u("Index"), value), WBEM_S_NO_ERROR);
        EXPECT_EQ(value.vt, VT_I4);
        EXPECT_EQ(value.i, static_cast<int64_t>(i + 1));
        EXPECT_TRUE(value.str.empty());
        ASSERT_EQ(objects[i]->get(u("Name"), value), WBEM_S_NO_ERROR);
        EXPECT_EQ(utf8(value.str), "Name_" + std::to_string(i));
    }
}

}  // namespace
}  // namespace morvax::wmi
