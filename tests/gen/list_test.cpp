// The intrusive list, its iterator and what both report.

#include <new>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "gen/list.h"
#include "tests/support/reports.h"

namespace listtest
{
std::vector<int> g_deleted;

class Number : public LListable
{
  public:
    explicit Number(int n) : value(n) {}
    ~Number() { g_deleted.push_back(value); }
    int value;
};
} // namespace listtest

namespace
{
using namespace sndxtest;
using listtest::g_deleted;
using listtest::Number;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

std::vector<int> Walk(const LList<Number>& list)
{
    std::vector<int> values;
    for (LListIterator<Number> it(list); it.IsValid(); it.Next())
    {
        values.push_back(it->value);
    }
    return values;
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
    for (const auto& [value, rest] : std::vector<std::pair<int, std::vector<int>>>{
             {3, {2, 1}}, {2, {3, 1}}, {1, {2, 3}}}) // after the earlier ones were put back on top
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
    EXPECT_THAT(Walk(list), ElementsAre(1, 2, 3));
    EXPECT_THAT(Walk(LList<Number>()), IsEmpty());
    EXPECT_THAT(Reports(), IsEmpty());
}

TEST_F(ListTest, DeletesOneOrAllNewestFirst)
{
    {
        LList<Number> second;
        second.AddTop(new Number(10));
        second.AddTop(new Number(11));
    }
    LListIterator<Number> it = At(2);
    list.Delete(it);
    ASSERT_TRUE(it.IsValid());
    EXPECT_EQ(it->value, 1);
    list.DeleteAll();
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_THAT(g_deleted, ElementsAre(11, 10, 2, 3, 1));
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
    EXPECT_THAT(Reports(), ElementsAre(untestedGetPtr, untestedArrow, untestedNext, untestedNext));
}

TEST_F(ListTest, UsePastTheEndIsReportedAndGivesNull)
{
    LListIterator<Number> it = At(99);
    EXPECT_EQ(it.GetPtr(), nullptr);
    EXPECT_EQ(it.operator->(), nullptr);
    EXPECT_FALSE(it.Next());
    EXPECT_EQ(list.Detach(it), nullptr);
    list.Delete(it);
    EXPECT_THAT(Reports(), ElementsAre(nullGetPtr, nullArrow, invalidNext, nullGetPtr, invalidDetach,
                                       nullGetPtr, invalidDetach));
    EXPECT_THAT(Walk(list), ElementsAre(3, 2, 1));
}

TEST_F(ListTest, AnItemOfAnotherListIsNotDetached)
{
    LList<Number> other;
    LListIterator<Number> it = At(2);
    EXPECT_EQ(other.Detach(it), nullptr);
    EXPECT_THAT(Reports(), ElementsAre("**LList<T>::Detach called but item not found in the list"));
    ASSERT_TRUE(it.IsValid());
    EXPECT_EQ(it->value, 1) << "the iterator moves on all the same";
    EXPECT_THAT(Walk(list), ElementsAre(3, 2, 1));
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
    EXPECT_THAT(Reports(), ElementsAre(attached, attached, attached, filled, filled, nullWrite));
    EXPECT_THAT(Walk(list), ElementsAre(3, 2, 1));
    EXPECT_TRUE(other.IsEmpty());
}

TEST_F(ListTest, AnItemDestroyedTwiceIsReported)
{
    alignas(LListable) unsigned char memory[sizeof(LListable)];
    auto* item = new (memory) LListable;
    EXPECT_THAT(Traced([&] { item->~LListable(); }), IsEmpty());
    EXPECT_THAT(
        Traced([&] { item->~LListable(); }),
        ElementsAre("**LListable::~LListable A listable object has been deleted twice. Check you are not "
                    "calling delete on an object which was also added to the LList."));
}
} // namespace
