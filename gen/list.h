#pragma once
// Intrusive singly linked list: the link lives inside each item, the list owns its items, items are added at
// the front only, so a walk goes from the newest to the oldest. The iterator wants every position tested
// before it is used or left, which catches stepping on after the current item was deleted. Misuse is
// reported in the trace and the operation carries on.
//
// The walk that every user writes:
//     for (LListIterator<T> it(list); it.IsValid(); it.Next()) { … it->… }
// To remove the current item call Delete(it) or Detach(it) and go back to the test without Next: the removal
// has moved the iterator on.
//
// No lock: the owner of a list that several threads reach guards it with an LLockObject.

#include "gen/compiler.h"
#include "gen/debug.h"

// Base of every item type, always its first base. Items come from the tracked allocator; no virtual
// functions, a list of T deletes its items as T.
class LListable
{
  public:
    LListable() : pNext(FreeMarker()), bDeleted(false) {}
    ~LListable()
    {
        if (bDeleted)
        {
            LDebugTraceError(
                "LListable::~LListable A listable object has been deleted twice. Check you are not "
                "calling delete on an object which was also added to the LList.");
        }
        bDeleted = true;
    }
    LListable(const LListable&) = delete;
    LListable& operator=(const LListable&) = delete;

    // The link of an item that belongs to no list (LLIST_IS_ATTACHED, the pointer value 1).
    static LListable* FreeMarker() { return reinterpret_cast<LListable*>(LLIST_IS_ATTACHED); }

    static constexpr std::uintptr_t LLIST_IS_ATTACHED = 1;

    LListable* pNext; // null for the last item of a list

  private:
    // Volatile: the store in the destructor and the load of a second destruction are the whole point, and a
    // compiler may drop both as dead otherwise.
    volatile bool bDeleted;
};
static_assert(sizeof(LListable) == 16); // contract.md M2

template <class T>
class LList;

template <class T>
class LListIterator
{
  public:
    explicit LListIterator(const LList<T>& list);

    // The test: true while the iterator stands on an item.
    bool IsValid()
    {
        bTested = true;
        return p != nullptr;
    }

    // Steps on; the result says whether there is a further item but does not count as a test.
    bool Next()
    {
        if (!bTested)
        {
            LDebugTraceError(
                "LListIterator<T>::Next called when iterator has not been tested. Check you are not "
                "calling Next in the same branch after Delete.");
        }
        if (p == nullptr)
        {
            LDebugTraceError(
                "LListIterator<T>::Next called when iterator is not valid. Check you are not calling "
                "Next in the same branch after Delete.");
            return false;
        }
        // An item that was detached under the iterator leads nowhere.
        p = p->pNext == LListable::FreeMarker() ? nullptr : static_cast<T*>(p->pNext);
        bTested = false;
        return p != nullptr;
    }

    T* GetPtr() const
    {
        if (!bTested)
        {
            LDebugTraceError("LListIterator<T>::GetPtr called when iterator has not been tested.");
        }
        if (p == nullptr)
        {
            LDebugAssertFailed(LTemplateFunctionName<"LListIterator<", T, ">::GetPtr">::value, "p != nullptr",
                               __FILE__, __LINE__);
        }
        return p;
    }

    T* operator->() const
    {
        if (!bTested)
        {
            LDebugTraceError("LListIterator<T>::operator-> called when iterator has not been tested.");
        }
        if (p == nullptr)
        {
            LDebugAssertFailed(LTemplateFunctionName<"LListIterator<", T, ">::operator ->">::value,
                               "p != nullptr", __FILE__, __LINE__);
        }
        return p;
    }

  private:
    T* p;
    bool bTested;
};

template <class T>
class LList
{
  public:
    LList() : pHead(nullptr) {}
    ~LList() { DeleteAll(); }
    LList(const LList&) = delete;
    LList& operator=(const LList&) = delete;

    // Links the item at the front; the list owns it then. An item that is in a list already, or whose address
    // is a fill pattern of uninitialised memory, is reported and not linked: linking it would corrupt both
    // lists, or write through a wild pointer. It stays where it was.
    void AddTop(T* NewItem)
    {
        LDEBUGMUSTBEHEAPPTR(NewItem);
        LDEBUGVALIDPTRWRITE(NewItem);
        const auto uAddress = reinterpret_cast<std::uintptr_t>(NewItem);
        if (uAddress == 0xCCCCCCCC || uAddress == 0xCDCDCDCD)
        {
            LDebugAssertFailed(LTemplateFunctionName<"LList<", T, ">::AddTop">::value,
                               "!((NewItem == (T*)0xCCCCCCCC) || (NewItem == (T*)0xCDCDCDCD))", __FILE__,
                               __LINE__);
            return;
        }
        if (NewItem == nullptr)
        {
            return;
        }
        if (NewItem->pNext != LListable::FreeMarker())
        {
            LDebugCheckFailed("NewItem->pNext == (void*)LLIST_IS_ATTACHED",
                              "LList<T>::AddTop NewItem is already a member of a LList", __FILE__, __LINE__);
            return;
        }
        NewItem->pNext = pHead;
        pHead = NewItem;
    }

    // Unlinks the iterator's item and gives it to the caller; the iterator moves on. Null on misuse.
    T* Detach(LListIterator<T>& it)
    {
        T* pItem = it.GetPtr();
        if (pItem == nullptr)
        {
            LDebugTraceError("LList<T>::Detach called with an invalid iterator");
            return nullptr;
        }
        it.Next();
        LListable** ppLink = FindLink(pItem);
        if (ppLink == nullptr)
        {
            LDebugTraceError("LList<T>::Detach called but item not found in the list");
            return nullptr;
        }
        *ppLink = pItem->pNext;
        pItem->pNext = LListable::FreeMarker();
        return pItem;
    }

    void Delete(LListIterator<T>& it) { delete Detach(it); }

    // Newest first. The items' links are not reset; nobody looks at a deleted item.
    void DeleteAll()
    {
        while (pHead != nullptr)
        {
            T* pItem = static_cast<T*>(pHead);
            pHead = pItem->pNext;
            delete pItem;
        }
    }

    bool IsEmpty() const { return pHead == nullptr; }

  private:
    friend class LListIterator<T>;

    // The link that points to the item, or null when the item is not in this list.
    LListable** FindLink(const T* pItem)
    {
        for (LListable** ppLink = &pHead; *ppLink != nullptr; ppLink = &(*ppLink)->pNext)
        {
            if (*ppLink == pItem)
            {
                return ppLink;
            }
        }
        return nullptr;
    }

    LListable* pHead;
};

template <class T>
LListIterator<T>::LListIterator(const LList<T>& list) : p(static_cast<T*>(list.pHead)), bTested(false)
{
    static_assert(sizeof(LList<T>) == 8);                                                // contract.md M3
    static_assert(sizeof(LListIterator) == 16 && offsetof(LListIterator, bTested) == 8); // contract.md M4
}
