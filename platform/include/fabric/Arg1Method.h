#ifndef FABRIC_ARG1_METHOD_H
#define FABRIC_ARG1_METHOD_H

#include <execinfo.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <typeinfo>

namespace fabric {

/// The part of a handler object that does not depend on what it is bound to.
template <class Result, class Argument>
class BaseArg1Method
{
public:
    /// Calls one member function of one object. The middleware calls through this table, so its
    /// order is fixed.
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

    /// What the handler is bound to; lives inside the handler object itself.
    const Caller& boundCaller() const { return *caller; }

protected:
    BaseArg1Method() : caller(nullptr) {}

    Caller* caller;
};

/// A handler object: a member function of an object, to be called with an argument. A plain value:
/// a copy is independent of its original, nothing is allocated.
template <class Result, class Argument>
class Arg1Method : public BaseArg1Method<Result, Argument>
{
    typedef BaseArg1Method<Result, Argument> Base;

public:
    template <class Class, class Parameter>
    class ClassSpecCaller;

    template <class Class, class Parameter>
    Arg1Method(Class* object, Result (Class::*method)(Parameter))
    {
        typedef ClassSpecCaller<Class, Parameter> Bound;
        static_assert(sizeof(Bound) == sizeof(storage), "the caller exactly fills its storage");
        static_assert(alignof(Bound) <= alignof(std::uintptr_t), "the storage is aligned for it");
        this->caller = new (storage) Bound(object, method);
    }

    // The stored caller holds words only, so its bytes are all there is to copy; the pointer to it
    // has to point into this object's storage and not into the other's.
    Arg1Method(const Arg1Method& other) : Base() { adopt(other); }

    Arg1Method& operator=(const Arg1Method& other)
    {
        if (this != &other)
            adopt(other);
        return *this;
    }

    // Nothing to do: the stored caller needs no destruction.
    ~Arg1Method() override {}

private:
    void adopt(const Arg1Method& other)
    {
        std::memcpy(storage, other.storage, sizeof(storage));
        this->caller = reinterpret_cast<typename Base::Caller*>(storage);
    }

    std::uintptr_t storage[4];
};

template <class Result, class Argument>
template <class Class, class Parameter>
class Arg1Method<Result, Argument>::ClassSpecCaller
    : public BaseArg1Method<Result, Argument>::Caller
{
public:
    typedef Result (Class::*Method)(Parameter);

    ClassSpecCaller(Class* target, Method function) : object(target), method(function) {}
    ~ClassSpecCaller() override {}

    /// Takes the argument for a `Parameter` without a check: handlers are registered only for
    /// messages that arrive as such.
    Result invoke(Argument argument) const override
    {
        return (object->*method)(static_cast<Parameter>(argument));
    }

    /// The run-time type of the bound object, as the compiler names it. Never throws; empty when
    /// not even the fall-back can be allocated.
    std::string getClassName() const noexcept override
    {
        static const char* const fallBack = "fabric::Arg1Method";
        if (!object)
            return text(fallBack, fallBack);
        return text(typeid(*object).name(), fallBack);
    }

    /// What the symbol lookup knows of the bound function's address. Never throws.
    std::string getMethodName() const noexcept override
    {
        static const char* const fallBack = "fabric::No name";
        // The first word of a pointer to a non-virtual member function is its address.
        void* address;
        static_assert(sizeof(method) >= sizeof(address), "layout of a member function pointer");
        std::memcpy(&address, &method, sizeof(address));

        struct Free
        {
            void operator()(char** symbols) const { std::free(symbols); }
        };
        const std::unique_ptr<char*, Free> symbols(backtrace_symbols(&address, 1));
        return text(symbols ? symbols.get()[0] : nullptr, fallBack);
    }

    void* getObject() const override { return object; }

private:
    static std::string text(const char* preferred, const char* fallBack) noexcept
    {
        try {
            return preferred ? preferred : fallBack;
        } catch (...) {
        }
        try {
            return fallBack;
        } catch (...) {
            return std::string();
        }
    }

    Class* object;
    Method method;
};

} // namespace fabric

#endif
