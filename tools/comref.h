#pragma once
namespace sndxtools
{
// Owns one reference to a COM object.
template <class T>
class ComRef
{
  public:
    ComRef() = default;
    ~ComRef() { Reset(); }
    ComRef(ComRef&& other) noexcept : object_(other.object_) { other.object_ = nullptr; }
    ComRef& operator=(ComRef&& other) noexcept
    {
        if (this != &other)
        {
            Reset();
            object_ = other.object_;
            other.object_ = nullptr;
        }
        return *this;
    }
    ComRef(const ComRef&) = delete;
    ComRef& operator=(const ComRef&) = delete;

    // Takes over a reference that the caller holds.
    static ComRef Adopt(T* object)
    {
        ComRef reference;
        reference.object_ = object;
        return reference;
    }

    // For functions that hand out an object; what is held before is released first.
    void** Receive()
    {
        Reset();
        return reinterpret_cast<void**>(&object_);
    }
    void Reset()
    {
        if (object_ != nullptr)
        {
            object_->Release();
            object_ = nullptr;
        }
    }
    T* Get() const { return object_; }
    T* operator->() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

  private:
    T* object_ = nullptr;
};
} // namespace sndxtools
