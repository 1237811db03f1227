#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/Bus.h"

namespace kavaro {

// Stands for polkit on a bus of the test's own. It writes every question down, and answers it at once with `verdict`
// or, while it holds, when it is told to. Ends with this object.
class FakeAuthority {
  public:
    struct Question {
        std::string subjectKind;
        std::string subjectName;
        std::string action;
        std::int64_t flags;
    };

    explicit FakeAuthority(const std::string& address, bool takesItsName = true) {
        BusError error;
        _bus = Bus::open(address, &error);
        if (!_bus || !_bus->publish("/org/freedesktop/PolicyKit1/Authority", kXml, take(), &error))
            ADD_FAILURE() << error.message;
        if (takesItsName) takeName();
    }
    void takeName() {
        BusError error;
        EXPECT_TRUE(_bus->requestName("org.freedesktop.PolicyKit1", &error)) << error.message;
    }

    static BusReply verdictOf(bool isAuthorized, bool isChallenge = false) {
        return {{BusValue::structure(
                    {BusValue::boolean(isAuthorized), BusValue::boolean(isChallenge), BusValue::texts({})})},
                {}};
    }

    BusReply verdict = verdictOf(true);
    bool holds = false;
    std::vector<Question> questions;
    // Unanswered, in order.
    std::vector<Bus::Answer> held;

  private:
    Bus::LateCallHandler take() {
        return [this](const BusCall& call, Bus::Answer answer) {
            const auto subject = call.arguments.at(0).asStructure().value();
            questions.push_back(
                {subject.at(0).asString().value_or("?"), subject.at(1).get("name").asString().value_or("?"),
                 call.arguments.at(1).asString().value_or("?"), call.arguments.at(3).asInteger().value_or(-1)});
            EXPECT_TRUE(call.arguments.at(2).asDictionary().value().empty());
            EXPECT_EQ(call.arguments.at(4).asString(), "");
            if (!holds) return answer(verdict);
            held.push_back(std::move(answer));
        };
    }

    static constexpr char kXml[] = R"xml(<node><interface name="org.freedesktop.PolicyKit1.Authority">
  <method name="CheckAuthorization">
    <arg type="(sa{sv})" direction="in"/><arg type="s" direction="in"/><arg type="a{ss}" direction="in"/>
    <arg type="u" direction="in"/><arg type="s" direction="in"/><arg type="(bba{ss})" direction="out"/>
  </method>
</interface></node>)xml";

    std::unique_ptr<Bus> _bus;
};

}  // namespace kavaro
