// The intrusive list, its iterator and what both report.

#include <new>

#include "gen/list.h"
#include "tests/support/reports.h"

namespace listtest
{
std::string g_deleted; // the digits of the items

class Number : public LListable
{
  public:
    explicit Number(int n) : value(n) {}
    ~Number() { g_deleted += std::to_string(value); }
    int value;
};
} // namespace listtest

namespace
{
using namespace sndxtest;
using listtest::g_deleted;
using listtest::Number;

constexpr char untestedGetPtr[] = "**LListIterator<T>::GetPtr called when iterator has not been tested.";
constexpr char untestedArrow[] = "**LListIterator<T>::operator-> called when iterator has not been tested.";
constexpr char untestedNext[] =
    "**LListIterator<T>::Next called when iterator has not been tested. Check you are "
    "not calling Next in the same branch after Delete.";
constexpr char invalidNext[] =
    "**LListIterator<T>::Next called when iterator is not valid. Check you are not "
    "calling Next in the same branch after Delete.";
constexpr char invalidDetach[] = "**LList<T>::Detach called with an invalid iterator";
const std::string nullGetPtr =
    Assertion("LListIterator<class listtest::Number>::GetPtr", "p != nullptr", "gen/list.h");
const std::string nullArrow =
    Assertion("LListIterator<class listtest::Number>::operator ->", "p != nullptr", "gen/list.h");

// The digits of the items in order.
std::string Walk(const LList<Number>& list)
{
    std::string digits;
    for (LListIterator<Number> it(list); it.IsValid(); it.Next())
    {
        digits += std::to_string(it->value);
    }
    return digits;
}

// A list of 3, 2, 1 in walk order.
class ListTest : public ::testing::Test
{
  protected:
    ListTest()
    {
        g_deleted.clear();
        for (int i = 1; i <= 3; ++i)
        {
            list.AddTop(new Number(i));
        }
    }

    // An iterator on the item of the given value, tested; at the end for a value that is not there.
    LListIterator<Number> At(int value)
    {
        LListIterator<Number> it(list);
        while (it.IsValid() && it->value != value)
        {
            it.Next();
        }
        return it;
    }
    Lines Reports() const { return WithoutLineNumbers(trace.Texts()); }

    LList<Number> list;
    TraceCapture trace;
};

TEST_F(ListTest, DetachHandsOutAFreeItemFromEveryPosition)
{
    for (const auto& [value, rest] : {std::pair{3, "21"}, {2, "31"}, {1, "23"}}) // each put back on top after
    {
        LListIterator<Number> it = At(value);
        Number* item = list.Detach(it);
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(item->value, value);
        EXPECT_EQ(item->pNext, LListable::FreeMarker());
        EXPECT_EQ(it.IsValid(), value > 1);
        EXPECT_EQ(Walk(list), rest);
        list.AddTop(item);
    }
    EXPECT_EQ(Walk(list), "123");
    EXPECT_EQ(Walk(LList<Number>()), "");
    EXPECT_EQ(Reports(), Lines());
}

TEST_F(ListTest, DeletesOneOrAllNewestFirst)
{
    {
        LList<Number> second;
        second.AddTop(new Number(8));
        second.AddTop(new Number(9));
    }
    LListIterator<Number> it = At(2);
    list.Delete(it);
    ASSERT_TRUE(it.IsValid());
    EXPECT_EQ(it->value, 1);
    list.DeleteAll();
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(g_deleted, "98231");
}

TEST_F(ListTest, APositionUsedUntestedIsReported)
{
    LListIterator<Number> it(list);
    EXPECT_EQ(it.GetPtr()->value, 3);
    EXPECT_EQ(it->value, 3);
    EXPECT_TRUE(it.Next()) << "an item follows";
    EXPECT_TRUE(it.IsValid());
    list.Delete(it); // after which a step skips an item
    EXPECT_FALSE(it.Next());
    EXPECT_EQ(Reports(), (Lines{untestedGetPtr, untestedArrow, untestedNext, untestedNext}));
}

TEST_F(ListTest, UsePastTheEndIsReportedAndGivesNull)
{
    LListIterator<Number> it = At(99);
    EXPECT_EQ(it.GetPtr(), nullptr);
    EXPECT_EQ(it.operator->(), nullptr);
    EXPECT_FALSE(it.Next());
    EXPECT_EQ(list.Detach(it), nullptr);
    list.Delete(it);
    EXPECT_EQ(Reports(), (Lines{nullGetPtr, nullArrow, invalidNext, nullGetPtr, invalidDetach, nullGetPtr,
                                invalidDetach}));
    EXPECT_EQ(Walk(list), "321");
}

TEST_F(ListTest, AnItemOfAnotherListIsNotDetached)
{
    LList<Number> other;
    LListIterator<Number> it = At(2);
    EXPECT_EQ(other.Detach(it), nullptr);
    EXPECT_EQ(Reports(), Lines{"**LList<T>::Detach called but item not found in the list"});
    ASSERT_TRUE(it.IsValid());
    EXPECT_EQ(it->value, 1) << "the iterator moves on all the same";
    EXPECT_EQ(Walk(list), "321");
}

TEST_F(ListTest, AnItemThatCannotBeAddedIsReportedAndNotLinked)
{
    const std::string attached =
        FailedCheck("NewItem->pNext == (void*)LLIST_IS_ATTACHED",
                    "LList<T>::AddTop NewItem is already a member of a LList", "gen/list.h");
    const std::string filled =
        Assertion("LList<class listtest::Number>::AddTop",
                  "!((NewItem == (T*)0xCCCCCCCC) || (NewItem == (T*)0xCDCDCDCD))", "gen/list.h");
    list.AddTop(At(3).GetPtr());
    list.AddTop(At(1).GetPtr()); // the last one: its link is null
    LList<Number> other;
    other.AddTop(At(2).GetPtr());
    other.AddTop(reinterpret_cast<Number*>(std::uintptr_t{0xCCCCCCCC}));
    other.AddTop(reinterpret_cast<Number*>(std::uintptr_t{0xCDCDCDCD}));
    other.AddTop(nullptr);
    EXPECT_EQ(Reports(), (Lines{attached, attached, attached, filled, filled, nullWrite}));
    EXPECT_EQ(Walk(list), "321");
    EXPECT_TRUE(other.IsEmpty());
}

TEST_F(ListTest, AnItemDestroyedTwiceIsReported)
{
    alignas(LListable) unsigned char memory[sizeof(LListable)];
    auto* item = new (memory) LListable;
    EXPECT_EQ(Traced([&] { item->~LListable(); }), Lines());
    EXPECT_EQ(Traced([&] { item->~LListable(); }),
              Lines{"**LListable::~LListable A listable object has been deleted twice. Check you are not "
                    "calling delete on an object which was also added to the LList."});
}
} // namespace
