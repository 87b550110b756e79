#pragma once

#include <list>

namespace tovu { namespace util {

/// A list of pointers that deletes what they point at when it is destroyed.
/// \code
///     #include <string>
///     OwnerList<std::string> names;
///     names.push_back(new std::string("photos"));
///     delete names.front();  // whoever takes an element out deletes it
///     names.pop_front();
/// \endcode
///
/// Guarantees: elements are deleted from front to back, each through its own destructor; null pointers are skipped.
///
/// Requirements: elements come from `new` and stand in one list only. Whoever removes a pointer from the list owns it
/// from then on: erasing, popping and clearing delete nothing.
///
/// Threads: none of its own; the owner decides which lock guards the list.
template <typename T>
class OwnerList : public std::list<T*>
{
public:
    OwnerList() = default;  ///< An empty list.
    OwnerList(OwnerList const&) = delete;
    OwnerList& operator=(OwnerList const&) = delete;

    ~OwnerList()
    {
        for (T* element : *this)
            delete element;
        this->clear();
    }
};

}}  // namespace tovu::util
