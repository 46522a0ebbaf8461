#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "bundle_interface/holdfast.hpp"
#include "bundle_interface/holdfast/loan.hpp"
#include "bundle_interface/skein.hpp"
#include "bundle_interface/whole_file.hpp"

namespace {

using Holdfast::Chunk;
using Holdfast::StrongPtr;
using Holdfast::WeakPtr;

class Counted : public Holdfast::ReferenceBase<Counted> {
  public:
    explicit Counted(int& alive) : alive_(alive) { ++alive_; }
    ~Counted() override { --alive_; }
    int value = 7;

  private:
    int& alive_;
};

TEST(References, LastStrongReferenceDeletesTheObject) {
    int alive = 0;
    StrongPtr<Counted> first(new Counted(alive));
    StrongPtr<Counted> second = first;
    first.reset();
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(second->value, 7);
    second = {};
    EXPECT_EQ(alive, 0);
}

TEST(References, ReadingThroughAnUnavailableReferenceThrowsAndNamesTheType) {
    const StrongPtr<Counted> empty;
    EXPECT_FALSE(empty.available());
    try {
        static_cast<void>(empty->value);
        FAIL();
    } catch (const std::runtime_error& e) {
        EXPECT_THAT(e.what(), testing::HasSubstr("Counted"));
    }
}

TEST(References, WeakReferenceDoesNotKeepTheObject) {
    int alive = 0;
    StrongPtr<Counted> strong(new Counted(alive));
    const WeakPtr<Counted> weak = strong;
    EXPECT_TRUE(weak.lock().available());
    strong.reset();
    EXPECT_EQ(alive, 0);
    EXPECT_FALSE(weak.available());
    EXPECT_FALSE(weak.lock().available());
}

TEST(References, SecondReferenceFromThePlainPointerSharesTheCount) {
    int alive = 0;
    auto* object = new Counted(alive);
    StrongPtr<Counted> first(object);
    const StrongPtr<Counted> second(object);
    first.reset();
    EXPECT_TRUE(second.available());
}

TEST(References, CountsHoldWhenThreadsCopyAndLock) {
    int alive = 0;
    StrongPtr<Counted> strong(new Counted(alive));
    const WeakPtr<Counted> weak = strong;
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([copy = strong, weak] {
            for (int i = 0; i < 5000; ++i) {
                const StrongPtr<Counted> again = i % 2 == 0 ? copy : weak.lock();
                if (again->value != 7) {
                    return;
                }
            }
        });
    }
    strong.reset();
    for (auto& thread : threads) {
        thread.join();
    }
    threads.clear();
    EXPECT_EQ(alive, 0);
}

TEST(Chunks, AreZeroFilledAndCounted) {
    const auto before = Holdfast::ChunkBase::TotalMemsize.load();
    {
        const Chunk<double> chunk(1000);
        EXPECT_EQ(Holdfast::ChunkBase::TotalMemsize.load(), before + 8000);
        for (std::size_t i = 0; i < chunk.size(); ++i) {
            ASSERT_EQ(chunk[i], 0);
        }
    }
    EXPECT_EQ(Holdfast::ChunkBase::TotalMemsize.load(), before);
}

TEST(Chunks, ElementsAddedByAResizeAreZeroEvenWhereOldValuesStood) {
    Chunk<float> chunk(10);
    std::fill_n(chunk.data(), 10, 1.0F);
    chunk.resize(4);
    chunk.resize(8);
    EXPECT_EQ(chunk[3], 1.0F);
    EXPECT_EQ(chunk[4], 0.0F);
    EXPECT_EQ(chunk[7], 0.0F);
}

TEST(Chunks, MemoryFromASlotComesZeroed) {
    const auto slot = std::make_shared<Holdfast::BufferSlot>();
    const void* place = nullptr;
    {
        Chunk<double> chunk(500, slot);
        std::fill_n(chunk.data(), 500, 3.0);
        place = chunk.raw();
    }
    const Chunk<double> next(400, slot);
    EXPECT_EQ(next.raw(), place);
    for (std::size_t i = 0; i < next.size(); ++i) {
        ASSERT_EQ(next[i], 0);
    }
}

TEST(Chunks, SlotLeavesLentMemoryAloneUnlessAskedFor) {
    const auto slot = std::make_shared<Holdfast::BufferSlot>();
    std::shared_ptr<Holdfast::Loan> loan;
    const void* place = nullptr;
    {
        Chunk<double> chunk(500, slot);
        place = chunk.raw();
        loan = chunk.lend(false);
    }
    const Chunk<double> other(500, slot);
    EXPECT_NE(other.raw(), place);
    const Chunk<double> taken(0, slot, Holdfast::LentMemory::take);
    EXPECT_EQ(taken.raw(), place);
    loan->end();
}

TEST(Chunks, LentElementsAreBackFromTheFirstOn) {
    Chunk<double> chunk(500);
    const auto loan = chunk.lend(true);
    EXPECT_EQ(loan->bytes(), 4000U);
    loan->giveBack(84);
    EXPECT_EQ(chunk.await(10), 10U);
    EXPECT_FALSE(loan->ended());
    loan->end();
    EXPECT_EQ(chunk.await(500), chunk.capacity());
    EXPECT_TRUE(loan->ended());
}

TEST(Chunks, LoanThatItsBorrowerDropsIsOver) {
    Holdfast::Buffer buffer(500);
    buffer.lend(500, true)->giveBack(100);
    EXPECT_FALSE(buffer.lent());
}

TEST(Chunks, ImpossibleSizesThrow) {
    EXPECT_THROW(Chunk<double>(std::size_t{1} << 62), std::length_error);
    Chunk<double> chunk(3);
    EXPECT_THROW(chunk.resize(std::size_t{1} << 61), std::length_error);
    EXPECT_EQ(chunk.size(), 3U);
}

TEST(Console, DeliversOneMessageWhenDestroyed) {
    std::vector<std::string> said;
    Holdfast::Console::setSink([&](const std::string& m) { said.push_back(m); });
    {
        Holdfast::Console console;
        console << "a " << std::string("b");
        EXPECT_TRUE(said.empty());
    }
    Holdfast::Console::setSink([](const std::string&) { throw 1; });
    { Holdfast::Console() << "dropped"; }
    Holdfast::Console::setSink({});
    EXPECT_THAT(said, testing::ElementsAre("a b"));
}

TEST(Typename, IsReadable) {
    EXPECT_EQ(Holdfast::Typename(typeid(unsigned char)), "unsigned char");
    EXPECT_EQ(Holdfast::Typename(typeid(Tern::PhysicalSpace::point)), "Tern::PhysicalSpace::point");
}

TEST(DataRange, TextReadsBackExactly) {
    EXPECT_EQ(std::to_string(Skein::DataRange<double>(0.1, 2600)), "[0.1, 2600]");
    EXPECT_EQ(std::to_string(std::string("09.02.2019")), "09.02.2019");
}

TEST(MemArray, ChunkSmallerThanTheArrayIsRefused) {
    const StrongPtr<Chunk<unsigned short>> chunk(new Chunk<unsigned short>(10));
    EXPECT_THROW((Skein::MemArray<2, unsigned short>(chunk, 4, 3)), std::runtime_error);
}

TEST(WholeFile, TakesThePlaceOfAnEarlierOneAndLeavesNoPartOfAFailedOne) {
    const std::string path = testing::TempDir() + "whole_file_" + std::to_string(getpid());
    for (const std::string& text : {std::string("longer"), std::string("a\0b", 3), std::string()}) {
        EXPECT_EQ(Holdfast::writeWholeFile(path, text), "");
        std::ifstream file(path, std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), text);
    }
    EXPECT_EQ(Holdfast::writeWholeFile("/dev/full", "text"), "No space left on device");
    EXPECT_TRUE(std::filesystem::exists("/dev/full")) << "no file, so not removed";
    std::filesystem::remove(path);
    EXPECT_EQ(Holdfast::writeWholeFile(path + "/file", "text"), "No such file or directory");
    EXPECT_EQ(Holdfast::writeWholeFile(testing::TempDir(), "text"), "Is a directory");
}

TEST(WholeFile, KeepsAnEarlierOneUntilItIsWhole) {
    const std::string path = testing::TempDir() + "whole_file_kept_" + std::to_string(getpid());
    EXPECT_EQ(Holdfast::writeWholeFile(path, "earlier"), "");
    std::filesystem::create_directory(path + ".part");
    EXPECT_EQ(Holdfast::writeWholeFile(path, "later"), "Is a directory");
    std::ifstream file(path, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "earlier");
    EXPECT_TRUE(std::filesystem::is_directory(path + ".part")) << "it is somebody else's";
    std::filesystem::remove(path + ".part");
    EXPECT_EQ(Holdfast::writeWholeFile(path, "later"), "");
    EXPECT_FALSE(std::filesystem::exists(path + ".part"));
    std::filesystem::remove(path);
}

} // namespace
