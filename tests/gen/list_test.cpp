// The intrusive list, its iterator and what both report.

#include <new>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "gen/list.h"
#include "tests/gen/reports.h"

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
        trace.Restart();
    }

    // An iterator on the item of the given value, tested.
    LListIterator<Number> At(int value)
    {
        LListIterator<Number> it(list);
        while (it.IsValid() && it->value != value)
        {
            it.Next();
        }
        return it;
    }

    LList<Number> list;
    TraceCapture trace;
};

TEST_F(ListTest, WalksFromTheNewestToTheOldest)
{
    EXPECT_THAT(Walk(list), ElementsAre(3, 2, 1));
    EXPECT_FALSE(list.IsEmpty());
    const LList<Number> empty;
    EXPECT_THAT(Walk(empty), IsEmpty());
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_THAT(Reports(trace), IsEmpty());
}

TEST_F(ListTest, NextSaysWhetherAnItemFollows)
{
    LListIterator<Number> it(list);
    for (const bool more : {true, true, false})
    {
        EXPECT_TRUE(it.IsValid());
        EXPECT_EQ(it.Next(), more);
    }
    EXPECT_FALSE(it.IsValid());
    EXPECT_THAT(Reports(trace), IsEmpty());
}

TEST_F(ListTest, DeleteMovesTheIteratorOn)
{
    for (LListIterator<Number> it(list); it.IsValid();)
    {
        if (it->value == 2)
        {
            list.Delete(it);
        }
        else
        {
            it.Next();
        }
    }
    EXPECT_THAT(Walk(list), ElementsAre(3, 1));
    EXPECT_THAT(g_deleted, ElementsAre(2));
    EXPECT_THAT(Reports(trace), IsEmpty());
}

TEST_F(ListTest, NextRightAfterDeleteIsReportedAndSkipsAnItem)
{
    LListIterator<Number> it = At(3);
    list.Delete(it);
    EXPECT_TRUE(it.Next());
    EXPECT_THAT(Reports(trace), ElementsAre(untestedNext));
    ASSERT_TRUE(it.IsValid());
    EXPECT_EQ(it.GetPtr()->value, 1);
}

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
        EXPECT_EQ(Walk(list), rest);
        list.AddTop(item);
    }
    EXPECT_THAT(Walk(list), ElementsAre(1, 2, 3));
    LListIterator<Number> last = At(3);
    delete list.Detach(last);
    EXPECT_FALSE(last.IsValid());
    EXPECT_THAT(Reports(trace), IsEmpty());
}

TEST_F(ListTest, DeleteAllAndTheDestructorDeleteNewestFirst)
{
    list.DeleteAll();
    EXPECT_THAT(g_deleted, ElementsAre(3, 2, 1));
    EXPECT_TRUE(list.IsEmpty());
    list.DeleteAll();
    {
        LList<Number> second;
        second.AddTop(new Number(10));
        second.AddTop(new Number(11));
    }
    EXPECT_THAT(g_deleted, ElementsAre(3, 2, 1, 11, 10));
    EXPECT_THAT(Reports(trace), IsEmpty());
}

TEST_F(ListTest, APositionUsedUntestedIsReported)
{
    LListIterator<Number> it(list);
    EXPECT_EQ(it.GetPtr()->value, 3);
    EXPECT_EQ(it->value, 3);
    EXPECT_TRUE(it.Next());
    EXPECT_THAT(Reports(trace), ElementsAre(untestedGetPtr, untestedArrow, untestedNext));
    trace.Restart();
    // A step makes the position untested again.
    EXPECT_TRUE(it.IsValid());
    EXPECT_TRUE(it.Next());
    EXPECT_EQ(it->value, 1);
    EXPECT_THAT(Reports(trace), ElementsAre(untestedArrow));
}

TEST_F(ListTest, UsePastTheEndIsReportedAndGivesNull)
{
    LListIterator<Number> it = At(99);
    trace.Restart();
    EXPECT_EQ(it.GetPtr(), nullptr);
    EXPECT_EQ(it.operator->(), nullptr);
    EXPECT_FALSE(it.Next());
    EXPECT_EQ(list.Detach(it), nullptr);
    list.Delete(it);
    EXPECT_THAT(Reports(trace),
                ElementsAre(nullGetPtr,
                            Assertion("LListIterator<class listtest::Number>::operator ->", "p != nullptr",
                                      "gen/list.h"),
                            invalidNext, nullGetPtr, invalidDetach, nullGetPtr, invalidDetach));
    EXPECT_THAT(Walk(list), ElementsAre(3, 2, 1));

    trace.Restart();
    const LList<Number> empty;
    LListIterator<Number> untested(empty);
    EXPECT_EQ(list.Detach(untested), nullptr);
    EXPECT_FALSE(untested.Next());
    EXPECT_THAT(Reports(trace),
                ElementsAre(untestedGetPtr, nullGetPtr, invalidDetach, untestedNext, invalidNext));
}

TEST_F(ListTest, AnItemOfAnotherListIsNotDetached)
{
    LList<Number> other;
    LListIterator<Number> it = At(2);
    EXPECT_EQ(other.Detach(it), nullptr);
    EXPECT_THAT(Reports(trace), ElementsAre("**LList<T>::Detach called but item not found in the list"));
    ASSERT_TRUE(it.IsValid());
    EXPECT_EQ(it->value, 1) << "the iterator moves on all the same";
    EXPECT_THAT(Walk(list), ElementsAre(3, 2, 1));
}

TEST_F(ListTest, AnItemThatIsInAListAlreadyIsReportedAndStaysWhereItWas)
{
    const std::string report =
        FailedCheck("NewItem->pNext == (void*)LLIST_IS_ATTACHED",
                    "LList<T>::AddTop NewItem is already a member of a LList", "gen/list.h");
    list.AddTop(At(3).GetPtr());
    list.AddTop(At(1).GetPtr()); // the last one: its link is null
    LList<Number> other;
    other.AddTop(At(2).GetPtr());
    EXPECT_THAT(Reports(trace), ElementsAre(report, report, report));
    EXPECT_THAT(Walk(list), ElementsAre(3, 2, 1));
    EXPECT_TRUE(other.IsEmpty());
}

TEST_F(ListTest, FillPatternsAndNullAreReportedAndNotLinked)
{
    const std::string report =
        Assertion("LList<class listtest::Number>::AddTop",
                  "!((NewItem == (T*)0xCCCCCCCC) || (NewItem == (T*)0xCDCDCDCD))", "gen/list.h");
    for (const std::uintptr_t pattern : {0xCCCCCCCCu, 0xCDCDCDCDu})
    {
        list.AddTop(reinterpret_cast<Number*>(pattern));
    }
    list.AddTop(nullptr);
    EXPECT_THAT(Reports(trace),
                ElementsAre(report, report, "**LDEBUGVALIDPTRWRITE attempting to read from a null ptr"));
    EXPECT_THAT(Walk(list), ElementsAre(3, 2, 1));
}

TEST_F(ListTest, AnItemDestroyedTwiceIsReported)
{
    alignas(LListable) unsigned char memory[sizeof(LListable)];
    auto* item = new (memory) LListable;
    item->~LListable();
    EXPECT_THAT(Reports(trace), IsEmpty());
    item->~LListable();
    EXPECT_THAT(
        Reports(trace),
        ElementsAre("**LListable::~LListable A listable object has been deleted twice. Check you are not "
                    "calling delete on an object which was also added to the LList."));
}
} // namespace
