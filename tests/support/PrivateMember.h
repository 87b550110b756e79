#pragma once

/// Names a private member, so that tests can look into an object of a class that knows nothing of tests: `Name::Of(object)`
/// is the member of an object, `PointerTo(Name())` the pointer to the member. The member must have exactly this type.
///
/// The arguments of an explicit instantiation are not subject to access checks ([temp.explicit]); the template that is
/// instantiated defines the function that Name declares.
#define TOVU_PRIVATE_MEMBER(Name, Type, Class, member)                                   \
    struct Name                                                                          \
    {                                                                                    \
        typedef Type Class::*Pointer;                                                    \
        friend constexpr Pointer PointerTo(Name);                                        \
        static Type& Of(Class& object) { return object.*PointerTo(Name()); }             \
        static Type const& Of(Class const& object) { return object.*PointerTo(Name()); } \
    };                                                                                   \
    template <Name::Pointer POINTER>                                                     \
    struct Name##Access                                                                  \
    {                                                                                    \
        friend constexpr Name::Pointer PointerTo(Name) { return POINTER; }               \
    };                                                                                   \
    template struct Name##Access<&Class::member>
