#pragma once
#include <atomic>

#include <windows.h>
#include <ole2.h>

namespace sndxtools
{
// Base of a COM object that begins with one reference and ends with its last: counting, and the question for
// one of its interfaces. They are named in the constructor in their order.
template <class... Interfaces>
class ComObject : public Interfaces...
{
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override
    {
        void* const sides[] = {static_cast<Interfaces*>(this)...};
        *out = IsEqualIID(iid, IID_IUnknown) ? sides[0] : nullptr;
        for (std::size_t i = 0; i < sizeof...(Interfaces); ++i)
        {
            if (IsEqualIID(iid, *ids_[i]))
            {
                *out = sides[i];
            }
        }
        references_ += *out == nullptr ? 0 : 1;
        return *out == nullptr ? E_NOINTERFACE : S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --references_;
        if (left == 0)
        {
            delete this;
        }
        return left;
    }

  protected:
    template <class... Id>
    explicit ComObject(const Id&... ids) : ids_{&ids...}
    {
        static_assert(sizeof...(Id) == sizeof...(Interfaces));
    }
    virtual ~ComObject() = default;
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

  private:
    const IID* ids_[sizeof...(Interfaces)]; // constants of the system
    std::atomic<ULONG> references_ = 1;
};
} // namespace sndxtools
