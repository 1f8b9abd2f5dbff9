// Lists, owning pointers and arrays: who is destroyed, when, and in which order.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "base/LList.h"
#include "base/LPtr.h"
#include "base/LStringList.h"
#include "base/LVector.h"

namespace {

std::string destroyed;

// The link stands behind the other fields here: the list must not care where.
struct Element {
    explicit Element(char elementName) : name(elementName) {}
    virtual ~Element() {
        destroyed += name;
        if (whenDestroyed) whenDestroyed();
    }
    char name;
    std::function<void()> whenDestroyed;
    Element* next = nullptr;
};

struct DerivedElement : Element {
    using Element::Element;
    ~DerivedElement() override { destroyed += '+'; }
};

class Lists : public testing::Test {
  protected:
    void SetUp() override {
        destroyed.clear();
        for (const char name : {'A', 'B', 'C'}) list.Insert(new DerivedElement(name));
    }
    std::string Names() const {
        std::string names;
        for (const Element& element : list) names += element.name;
        return names;
    }
    LListIterator<Element> At(char name) {
        LListIterator<Element> it(list);
        while (it->name != name) ++it;
        return it;
    }
    LList<Element> list;
};

TEST_F(Lists, DetachUnlinksTheElementAndMovesOn) {
    struct Row {
        char element;
        const char* left;
        char next;
    };
    for (const Row& row : {Row{'C', "BA", 'B'}, Row{'B', "CA", 'A'}, Row{'A', "CB", 0}}) {
        LListIterator<Element> it = At(row.element);
        LPtr<Element> element(list.Detach(it));
        ASSERT_TRUE(element != nullptr);
        EXPECT_EQ(element->name, row.element);
        EXPECT_EQ(Names(), row.left);
        EXPECT_EQ(it.current == nullptr ? 0 : it->name, row.next);
        EXPECT_EQ(element->next, it.current) << "its own link is left";
        EXPECT_EQ(list.Detach(it = LListIterator<Element>()), nullptr);
        list.Clear();
        SetUp();
    }
}

TEST_F(Lists, DetachOfAStrangerMovesOnButChangesNothing) {
    LList<Element> other;
    other.Insert(new Element('y'));
    other.Insert(new Element('x'));
    LListIterator<Element> it(other);
    EXPECT_EQ(list.Detach(it), nullptr);
    EXPECT_EQ(it->name, 'y');
    list.Delete(it);
    EXPECT_EQ(it.current, nullptr);
    EXPECT_EQ(Names() + destroyed, "CBA");
}

TEST_F(Lists, DestroyFromTheHeadThroughTheVirtualDestructor) {
    LListIterator<Element> it = At('B');
    list.Delete(it);
    EXPECT_EQ(destroyed, "+B");
    EXPECT_EQ(it->name, 'A');
    list.head->whenDestroyed = [this] { list.Insert(new Element('Z')); };
    list.Clear();
    EXPECT_EQ(destroyed, "+B+CZ+A") << "what a destructor puts in is destroyed too";
    list.Clear();
    EXPECT_EQ(list.head, nullptr);
}

TEST(Pointers, DestroyTheOldObjectBeforeTheyKeepTheNewOne) {
    destroyed.clear();
    {
        LPtr<Element> pointer;
        pointer = new DerivedElement('A');
        pointer->whenDestroyed = [&pointer] { EXPECT_FALSE(pointer) << "a half-destroyed object is not handed out"; };
        pointer = new DerivedElement('B');
        EXPECT_EQ(destroyed, "+A");
        pointer = pointer.get();
        EXPECT_EQ(destroyed, "+A") << "the same object again";
        pointer->whenDestroyed = [&pointer] { pointer = new Element('Z'); };
        pointer = nullptr;
        EXPECT_EQ(destroyed, "+A+BZ") << "assigned from within the destructor";
        pointer = new Element('C');
        LPtr<Element> other(pointer.Detach());
        pointer = new Element('D');
    }
    EXPECT_EQ(destroyed, "+A+BZCD");
}

TEST(StringLists, GrowByEightAndStayClosedByANull) {
    LStringListTemplate<char> list;
    list.Clear();
    EXPECT_EQ(list.items, nullptr);
    list.Delete(0);
    for (unsigned long i = 0; i < 64; ++i) {
        std::strcpy(list.Add(i == 0 ? 0 : 8), i == 0 ? "" : std::to_string(i).c_str());
        ASSERT_EQ(list.items[list.count], nullptr);
        ASSERT_EQ(list.capacity, i < 7 ? 7U : i < 63 ? 63U : 511U);
    }
    list.Delete(64);
    list.Delete(63);
    list.Delete(1);
    std::string left;
    for (char** item = list.items; *item != nullptr; ++item) left += *item;
    EXPECT_TRUE(list.count == 62 && left.starts_with("234") && left.ends_with("6162")) << left;
    list.Clear();
    EXPECT_TRUE(list.count == 0 && list.items[0] == nullptr && list.capacity == 511);
}

TEST(Arrays, KeepTheirFirstElementsAndStartWithZeros) {
    LVector<std::string> vector;
    for (const unsigned long size : {0UL, 2UL, 2UL, 3UL, 1UL, 0UL}) {
        const std::string* const before = vector.data;
        const unsigned long had = vector.size;
        vector.SetSize(size);
        EXPECT_EQ(vector.data == before, had == size);
        for (unsigned long i = 0; i < size; ++i) {
            EXPECT_EQ(vector[i], i < had ? std::to_string(i) : "");
            vector[i] = std::to_string(i);
        }
    }
    EXPECT_EQ(vector.data, nullptr);
    LArray<long> array(100);
    for (unsigned long i = 0; i < 100; ++i) ASSERT_EQ(array[i], 0);
}

}  // namespace
