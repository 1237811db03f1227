#include "model/TuvObject.h"

#include "ModelTest.h"

namespace kavaro {
namespace {

class Probe final : public TuvObject {
  public:
    explicit Probe(int* deaths) : _deaths(deaths) {}

  private:
    ~Probe() override { ++*_deaths; }
    int* _deaths;
};

TEST(TuvObjectTest, IsBornWithOneReference) {
    int deaths = 0;
    TuvObject* object = new Probe(&deaths);
    EXPECT_EQ(object->retainCount(), 1u);
    EXPECT_EQ(object->retain(), object);
    EXPECT_EQ(object->retainCount(), 2u);
    EXPECT_EQ(object->release(), 1u);
    EXPECT_EQ(deaths, 0);
    EXPECT_EQ(object->release(), 0u);
    EXPECT_EQ(deaths, 1);
}

TEST(TuvObjectTest, HasDefaultIdentity) {
    auto object = make<TuvObjectArray>();
    auto other = make<TuvObjectArray>();
    const TuvObject& base = *object;
    EXPECT_EQ(base.objectID(), 1u);
    EXPECT_TRUE(base.isEqual(object.get()));
    EXPECT_FALSE(base.isEqual(static_cast<const TuvObject*>(other.get())));
    EXPECT_FALSE(base.isEqual(nullptr));
    EXPECT_EQ(base.description(), "TuvObject");
}

TEST(TuvObjectTest, WritesItsAddressForDebugging) {
    int deaths = 0;
    auto object = TuvRef<TuvObject>::adopt(new Probe(&deaths));
    const std::string header = "<" + addressOf(object.get()) + ">\n";
    EXPECT_EQ(standardErrorOf([&] { object->debugHeader(); }), header);
    EXPECT_EQ(standardErrorOf([&] { object->debug(2, 1); }), "-------> " + header);
    EXPECT_EQ(standardErrorOf([&] { object->debug(); }), "-> " + header);
}

TEST(TuvObjectTest, ShiftsByThreeDashesAStep) {
    for (int shift : {0, 1, 19, 20, 21, 1000})
        EXPECT_EQ(standardErrorOf([&] { TuvObject::debugShift(shift); }),
                  std::string(static_cast<std::size_t>(shift) * 3, '-') + "-> ");
}

}  // namespace
}  // namespace kavaro
