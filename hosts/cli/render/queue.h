// A short queue between two threads of which one makes what the other takes.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>

namespace vorn::hosts::cli {

/// Holds at most `capacity` items: the maker waits for room, the taker for items.
template <class Item>
class BoundedQueue {
public:
    explicit BoundedQueue(std::size_t capacity) : capacity_(capacity) {}

    /// False when the taker has gone; the item is lost then.
    bool push(Item item) {
        std::unique_lock lock(mutex_);
        hasRoom_.wait(lock, [&] { return items_.size() < capacity_ || isAbandoned_; });
        if (isAbandoned_) return false;
        items_.push_back(std::move(item));
        hasItem_.notify_one();
        return true;
    }

    /// The maker is done, or has failed.
    void finish(std::exception_ptr failure = nullptr) {
        const std::lock_guard lock(mutex_);
        isFinished_ = true;
        failure_ = std::move(failure);
        hasItem_.notify_one();
    }

    /// The next item; nothing at the end. Throws what the maker failed with, after its last item.
    std::optional<Item> pop() {
        std::unique_lock lock(mutex_);
        hasItem_.wait(lock, [&] { return !items_.empty() || isFinished_; });
        if (items_.empty()) {
            if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
            return {};
        }
        std::optional<Item> item(std::move(items_.front()));
        items_.pop_front();
        hasRoom_.notify_one();
        return item;
    }

    /// The taker has gone: whoever waits for room need not wait any longer.
    void abandon() {
        const std::lock_guard lock(mutex_);
        isAbandoned_ = true;
        hasRoom_.notify_one();
    }

private:
    const std::size_t capacity_;
    std::mutex mutex_;
    std::condition_variable hasRoom_, hasItem_;
    std::deque<Item> items_;
    std::exception_ptr failure_;
    bool isFinished_ = false, isAbandoned_ = false;
};

} // namespace vorn::hosts::cli
