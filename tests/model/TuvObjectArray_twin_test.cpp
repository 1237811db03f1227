#include <algorithm>
#include <map>
#include <random>

#include "ModelTest.h"

namespace kavaro {
namespace {

int naiveStep(int size) {
    int step = 4;
    for (int limit = 16; limit <= 262144; limit *= 2, step *= 2)
        if (size <= limit) return step;
    return 131072;
}

// The array as simple as can be: order and size, nothing else.
struct Twin {
    std::vector<TuvObject*> items;
    int size = 0;

    int count() const { return static_cast<int>(items.size()); }
    void growWhile(const std::function<bool()>& tooSmall) {
        while (tooSmall()) size += naiveStep(size);
    }
    void add(TuvObject* object) {
        growWhile([&] { return count() >= size; });
        items.push_back(object);
    }
    void insert(TuvObject* object, int index) {
        if (index >= count()) return add(object);
        growWhile([&] { return count() + 1 >= size; });
        items.insert(items.begin() + index, object);
    }
    void insertFront(const std::vector<TuvObject*>& objects) {
        growWhile([&] { return size <= count() + static_cast<int>(objects.size()); });
        items.insert(items.begin(), objects.begin(), objects.end());
    }
    void append(const std::vector<TuvObject*>& objects) {
        growWhile([&] { return size <= count() + static_cast<int>(objects.size()); });
        items.insert(items.end(), objects.begin(), objects.end());
    }
    void addSorted(TuvObject* object) {
        growWhile([&] { return count() + 1 >= size; });
        const auto id = static_cast<std::int32_t>(object->objectID());
        auto place = std::find_if(items.begin(), items.end(),
                                  [&](TuvObject* other) { return static_cast<std::int32_t>(other->objectID()) > id; });
        items.insert(place, object);
    }
};

class ArrayTwins {
  public:
    explicit ArrayTwins(unsigned seed) : _random(seed) {
        for (std::uint32_t i = 0; i < 200; ++i) _pool.push_back(newFile(i / 2));
    }

    void run(int steps, int target) {
        for (int i = 0; i < steps && !testing::Test::HasFailure(); ++i) {
            step(target);
            check(i);
        }
        _array = nullptr;
        for (const auto& object : _pool) ASSERT_EQ(object->retainCount(), 1u);
    }

  private:
    int upTo(int limit) { return std::uniform_int_distribution<int>(0, limit)(_random); }
    TuvObject* any() { return _pool[static_cast<std::size_t>(upTo(199))].get(); }
    std::vector<TuvObject*> some(int limit) {
        std::vector<TuvObject*> objects(static_cast<std::size_t>(upTo(limit)));
        for (TuvObject*& object : objects) object = any();
        return objects;
    }

    void step(int target) {
        const int count = _twin.count();
        if (count > target && upTo(2) > 0) return remove(count);
        switch (upTo(11)) {
            case 0:
            case 1:
            case 2: {
                TuvObject* object = any();
                _array->insertObjectAtIndex(object, 0);
                return _twin.insert(object, 0);
            }
            case 3:
            case 4: {
                TuvObject* object = any();
                _array->addObject(object);
                return _twin.add(object);
            }
            case 5: {
                TuvObject* object = any();
                const int index = upTo(count + 1);
                _array->insertObjectAtIndex(object, index);
                return _twin.insert(object, index);
            }
            case 6:
                return addMany();
            case 7: {
                TuvObject* object = any();
                _array->addObjectBinary(object);
                return _twin.addSorted(object);
            }
            case 8:
                return replace(count);
            case 9:
                return resize(count);
            default:
                return remove(count);
        }
    }

    void addMany() {
        const std::vector<TuvObject*> objects = some(90);
        auto other = make<TuvObjectArray>();
        for (TuvObject* object : objects) other->addObject(object);
        switch (upTo(2)) {
            case 0:
                _array->addObjectsFromArray(other.get());
                if (!objects.empty()) _twin.append(objects);
                break;
            case 1:
                if (objects.empty()) return;
                _array->insertObjectsAtIndex(other.get(), 0);
                _twin.insertFront(objects);
                break;
            default:
                _array->addObjectsFromArrayLength(objects.data(), static_cast<int>(objects.size()));
                _twin.size = _twin.count() + static_cast<int>(objects.size());
                _twin.items.insert(_twin.items.end(), objects.begin(), objects.end());
        }
    }

    void remove(int count) {
        auto& items = _twin.items;
        switch (upTo(5)) {
            case 0:
            case 1:
                _array->removeObjectAtIndex(0);
                if (count > 0) items.erase(items.begin());
                break;
            case 2: {
                const int index = upTo(count + 2) - 1;
                _array->removeObjectAtIndex(index);
                if (index >= 0 && index < count) items.erase(items.begin() + index);
                break;
            }
            case 3:
                _array->removeLastObject();
                if (count > 0) items.pop_back();
                break;
            case 4: {
                TuvObject* object = any();
                _array->removeObject(object);
                auto found =
                    std::find_if(items.begin(), items.end(), [&](TuvObject* other) { return other->isEqual(object); });
                if (found != items.end()) items.erase(found);
                break;
            }
            default:
                removeMany(count);
        }
    }

    void removeMany(int count) {
        if (upTo(20) == 0) {
            _array->removeAllObjects();
            _twin.items.clear();
            return;
        }
        std::vector<int> indexes;
        std::vector<TuvObject*> left;
        const int first = upTo(count);
        const int last = first + upTo(40);
        for (int i = 0; i < count; ++i) {
            if (i >= first && i < last && upTo(1))
                indexes.push_back(i);
            else
                left.push_back(_twin.items[static_cast<std::size_t>(i)]);
        }
        _array->removeObjectsAtIndexes(indexes);
        _twin.items = left;
    }

    void replace(int count) {
        TuvObject* object = any();
        if (upTo(1)) {
            const int index = upTo(count + 2) - 1;
            _array->replaceObjectAtIndex(index, object);
            if (index >= 0 && index < count) _twin.items[static_cast<std::size_t>(index)] = object;
        } else {
            auto found = std::find_if(_twin.items.begin(), _twin.items.end(),
                                      [&](TuvObject* other) { return other->isEqual(object); });
            ASSERT_EQ(_array->replaceObject(object), found != _twin.items.end());
            if (found != _twin.items.end()) *found = object;
        }
    }

    void resize(int count) {
        if (upTo(3) == 0) {
            _array->shrinkSizeToCount();
            _twin.size = count + 1;
        } else if (upTo(3) == 0) {
            const int size = upTo(2 * count);  // below the count, too
            _array->setSize(size);
            _twin.size = size;
        }
    }

    void check(int step) {
        ASSERT_EQ(_array->count(), _twin.count()) << "step " << step;
        ASSERT_EQ(_array->size(), _twin.size) << "step " << step;
        ASSERT_TRUE(std::equal(_array->begin(), _array->end(), _twin.items.begin(), _twin.items.end()))
            << "step " << step;
        if (step % 16) return;
        std::map<TuvObject*, std::uint32_t> held;
        for (TuvObject* object : _twin.items) ++held[object];
        for (const auto& object : _pool) ASSERT_EQ(object->retainCount(), held[object.get()] + 1) << "step " << step;
    }

    std::mt19937 _random;
    std::vector<TuvRef<TuvNode>> _pool;
    TuvRef<TuvObjectArray> _array = make<TuvObjectArray>();
    Twin _twin;
};

TEST(TuvObjectArrayTwinTest, ShortArrays) {
    for (unsigned seed = 0; seed < 20 && !HasFailure(); ++seed) ArrayTwins(seed).run(2000, 20);
}

TEST(TuvObjectArrayTwinTest, LongArrays) {
    for (unsigned seed = 100; seed < 106 && !HasFailure(); ++seed) ArrayTwins(seed).run(6000, 600);
}

}  // namespace
}  // namespace kavaro
