#include "tovu/util/OwnerList.h"

#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace tovu { namespace util { namespace {

using Names = std::vector<std::string>;

// An element that tells its end. It is deleted through this class, but is always of the one below.
class Element
{
public:
    virtual ~Element() = default;
};

class NamedElement : public Element
{
public:
    NamedElement(std::string const& name, Names& deleted) : name_(name), deleted_(deleted) {}
    ~NamedElement() override { deleted_.push_back(name_); }

private:
    std::string name_;
    Names& deleted_;
};

static_assert(std::is_base_of<std::list<Element*>, OwnerList<Element>>::value, "a list of pointers");
static_assert(std::is_convertible<OwnerList<Element>*, std::list<Element*>*>::value, "the base is public");
static_assert(!std::is_polymorphic<OwnerList<Element>>::value, "no virtual operations");
static_assert(std::is_default_constructible<OwnerList<Element>>::value, "starts empty");
static_assert(!std::is_copy_constructible<OwnerList<Element>>::value, "an element has one owner");
static_assert(!std::is_copy_assignable<OwnerList<Element>>::value, "an element has one owner");

class OwnerListTest : public testing::Test
{
protected:
    OwnerListTest() : list_(new OwnerList<Element>) {}

    Element* Append(std::string const& name)
    {
        list_->push_back(new NamedElement(name, deleted_));
        return list_->back();
    }

    Names deleted_;
    std::unique_ptr<OwnerList<Element>> list_;
};

TEST_F(OwnerListTest, StartsEmptyAndIsDestroyedEmpty)
{
    EXPECT_TRUE(list_->empty());
    list_.reset();
    EXPECT_TRUE(deleted_.empty());
}

TEST_F(OwnerListTest, DeletesFromFrontToBack)
{
    Append("first");
    Append("second");
    Append("third");
    list_.reset();
    EXPECT_EQ((Names{"first", "second", "third"}), deleted_);
}

TEST_F(OwnerListTest, OrderIsThatOfTheListNotOfCreation)
{
    Append("second");
    list_->push_front(new NamedElement("first", deleted_));
    list_.reset();
    EXPECT_EQ((Names{"first", "second"}), deleted_);
}

TEST_F(OwnerListTest, SkipsNullPointers)
{
    list_->push_back(nullptr);
    Append("first");
    list_->push_back(nullptr);
    Append("second");
    list_->push_back(nullptr);
    list_.reset();
    EXPECT_EQ((Names{"first", "second"}), deleted_);
}

TEST_F(OwnerListTest, HoldsOnlyNullPointersWithoutHarm)
{
    list_->push_back(nullptr);
    list_->push_back(nullptr);
    list_.reset();
    EXPECT_TRUE(deleted_.empty());
}

TEST_F(OwnerListTest, RemovedElementBelongsToWhoeverRemovedIt)
{
    std::unique_ptr<Element> const removed(Append("removed"));
    Append("kept");
    list_->remove(removed.get());
    EXPECT_TRUE(deleted_.empty());

    list_.reset();
    EXPECT_EQ(Names{"kept"}, deleted_);
}

TEST_F(OwnerListTest, ClearingAndPoppingDeleteNothing)
{
    std::unique_ptr<Element> const first(Append("first"));
    std::unique_ptr<Element> const second(Append("second"));
    std::unique_ptr<Element> const third(Append("third"));
    list_->pop_back();
    list_->pop_front();
    list_->clear();
    list_.reset();
    EXPECT_TRUE(deleted_.empty());
}

// Elements without a virtual destructor are fine as long as they are exactly of the list's type.
TEST_F(OwnerListTest, TakesElementsOfAnyType)
{
    OwnerList<std::string> texts;
    texts.push_back(new std::string(1000, 'x'));
    EXPECT_EQ(1000u, texts.front()->size());
}

// An element that looks at its list while it is deleted.
class Watcher
{
public:
    Watcher(OwnerList<Watcher> const& list, std::vector<std::size_t>& sizes) : list_(list), sizes_(sizes) {}
    ~Watcher() { sizes_.push_back(list_.size()); }

private:
    OwnerList<Watcher> const& list_;
    std::vector<std::size_t>& sizes_;
};

TEST_F(OwnerListTest, ListIsClearedOnlyAfterTheLastElement)
{
    std::vector<std::size_t> sizes;
    {
        OwnerList<Watcher> list;
        list.push_back(new Watcher(list, sizes));
        list.push_back(new Watcher(list, sizes));
    }
    EXPECT_EQ((std::vector<std::size_t>{2, 2}), sizes);
}

}}}  // namespace tovu::util
