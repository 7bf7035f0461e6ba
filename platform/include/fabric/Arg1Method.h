#ifndef FABRIC_ARG1_METHOD_H
#define FABRIC_ARG1_METHOD_H

#include <execinfo.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <new>
#include <string>
#include <typeinfo>

namespace fabric {

/// The part of a handler object that does not depend on the function it is bound to.
template <class Result, class Argument>
class BaseArg1Method
{
public:
    /// Calls one member function of one object. The middleware calls through the virtual table of
    /// this class, so the order of its functions is fixed.
    class Caller
    {
    public:
        virtual ~Caller() {}
        virtual Result invoke(Argument argument) const = 0;
        virtual std::string getClassName() const = 0;
        virtual std::string getMethodName() const = 0;
        virtual void* getObject() const = 0;
    };

    virtual ~BaseArg1Method() {}

    /// Returns the caller, which is a part of the handler object and lives as long as it does.
    const Caller& boundCaller() const { return *caller; }

protected:
    BaseArg1Method() : caller(nullptr) {}

    Caller* caller;
};

/// A handler object: calls a member function of an object with one argument. It does not own the
/// object. It is a value that allocates nothing, and a copy is independent of its original.
template <class Result, class Argument>
class Arg1Method : public BaseArg1Method<Result, Argument>
{
    using Base = BaseArg1Method<Result, Argument>;

public:
    template <class Class, class Parameter>
    class ClassSpecCaller;

    template <class Class, class Parameter>
    Arg1Method(Class* object, Result (Class::*method)(Parameter))
    {
        using Bound = ClassSpecCaller<Class, Parameter>;
        static_assert(sizeof(Bound) == sizeof(storage_), "the caller exactly fills its storage");
        static_assert(alignof(Bound) <= alignof(std::uintptr_t), "the storage is aligned for it");
        this->caller = new (storage_) Bound(object, method);
    }

    // The stored caller consists of words without owners, so a copy of its bytes is a copy of it.
    // The pointer is not copied: it has to point into this object's storage.
    Arg1Method(const Arg1Method& other) : Base() { copyCaller(other); }

    Arg1Method& operator=(const Arg1Method& other)
    {
        if (this != &other)
            copyCaller(other);
        return *this;
    }

    ~Arg1Method() override {} // the stored caller needs no destruction

private:
    void copyCaller(const Arg1Method& other)
    {
        std::memcpy(storage_, other.storage_, sizeof(storage_));
        this->caller = reinterpret_cast<typename Base::Caller*>(storage_);
    }

    std::uintptr_t storage_[4];
};

template <class Result, class Argument>
template <class Class, class Parameter>
class Arg1Method<Result, Argument>::ClassSpecCaller
    : public BaseArg1Method<Result, Argument>::Caller
{
public:
    using Method = Result (Class::*)(Parameter);

    ClassSpecCaller(Class* target, Method function) : object(target), method(function) {}
    ~ClassSpecCaller() override {}

    /// Casts the argument to `Parameter` without a check: a handler is registered only for messages
    /// that arrive as that type.
    Result invoke(Argument argument) const override
    {
        return (object->*method)(static_cast<Parameter>(argument));
    }

    /// Returns the name that the compiler gives to the run-time type of the object, or
    /// "fabric::Arg1Method" if there is no object.
    std::string getClassName() const noexcept override
    {
        return nameOr("fabric::Arg1Method", object ? typeid(*object).name() : nullptr);
    }

    /// Returns what backtrace_symbols() knows about the address of the member function, or
    /// "fabric::No name" if it knows nothing.
    std::string getMethodName() const noexcept override
    {
        // The first word of a pointer to a non-virtual member function is its address.
        void* address;
        static_assert(sizeof(method) >= sizeof(address), "layout of a member function pointer");
        std::memcpy(&address, &method, sizeof(address));

        struct Free
        {
            void operator()(char** symbols) const { std::free(symbols); }
        };
        const std::unique_ptr<char*, Free> symbols(backtrace_symbols(&address, 1));
        return nameOr("fabric::No name", symbols ? symbols.get()[0] : nullptr);
    }

    void* getObject() const override { return object; }

private:
    /// Copies `name`, or `fallback` if there is no name or no memory for it. Returns an empty
    /// string if there is no memory for `fallback` either.
    static std::string nameOr(const char* fallback, const char* name) noexcept
    {
        for (const char* const text : {name, fallback}) {
            try {
                if (text)
                    return text;
            } catch (...) {
            }
        }
        return std::string();
    }

    Class* object;
    Method method;
};

} // namespace fabric

#endif
