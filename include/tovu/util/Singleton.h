#pragma once

#include <boost/noncopyable.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>

namespace tovu { namespace util {

/// A base that gives `T` one process-wide instance, made on first use.
/// \code
///     #include <string>
///     struct Settings : Singleton<Settings>
///     {
///         std::string folder = "/srv/volumes";
///     };
///     std::string const folder = Settings::Instance().folder;
/// \endcode
///
/// Guarantees:
///   - any number of threads may call Instance at once, and all get the same object, constructed once;
///   - a constructor that throws leaves no instance behind: a later call tries again;
///   - the instance is never destroyed, so a reference to it can be used until the process ends. Its lock goes at exit,
///     in the turn of static objects that were made at the first call; from then on Instance throws boost::lock_error.
///
/// Requirements: `T` has a default constructor that this class may call. The constructor does not call Instance itself.
///
/// Errors: whatever the constructor of `T` throws; boost::lock_error from the mutex.
template <typename T>
class Singleton : private boost::noncopyable
{
public:
    /// The instance. Every call takes one lock, the first also creates the object.
    static T& Instance()
    {
        static boost::mutex mutex;

        boost::unique_lock<boost::mutex> lock(mutex);
        if (_instance == nullptr)
            _instance = new T;
        return *_instance;
    }

protected:
    Singleton() = default;  ///< For `T` alone.
    ~Singleton() = default;

private:
    static T* _instance;
};

template <typename T>
T* Singleton<T>::_instance = nullptr;

}}  // namespace tovu::util
