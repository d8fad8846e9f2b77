#pragma once

#include "multimedia/speechrecognizer/speechservice.h"

#include <QtCore/QString>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

/// What a speech service tells of one task. Its handlers may run on any thread; it outlives the task.
class Listener
{
public:
    speechRecognize::SpeechService::ResultHandler handler()
    {
        return [this](const speechRecognize::SpeechResult& result, const std::string& error) {
            const std::lock_guard lock(mutex);
            if (is_over)
                ++later;
            if (error.empty())
                results.push_back(result);
            is_over = is_over || result.is_final || !error.empty();
            failed = failed || !error.empty();
            changed.notify_all();
        };
    }
    bool awaitEnd()
    {
        return await([this] { return is_over; });
    }
    bool awaitResult()
    {
        return await([this] { return is_over || !results.empty(); });
    }
    /// The utterances in a row, as a recogniser puts them together.
    QString text()
    {
        const std::lock_guard lock(mutex);
        QString finished;
        QString all;
        std::int64_t segments = 0;
        for (const speechRecognize::SpeechResult& result : results) {
            if (result.segment_count < segments)
                finished = all;
            segments = result.segment_count;
            all = finished + QString::fromStdString(result.text);
        }
        return all;
    }
    int utterances()
    {
        const std::lock_guard lock(mutex);
        int count = 1;
        for (std::size_t i = 1; i < results.size(); ++i)
            count += results[i].segment_count < results[i - 1].segment_count && results[i].segment_count == 0;
        return count;
    }
    int partials()
    {
        const std::lock_guard lock(mutex);
        return int(results.size());
    }
    bool ended()
    {
        const std::lock_guard lock(mutex);
        return is_over;
    }

    std::atomic<bool> failed = false;
    std::atomic<int> later = 0; ///< reports after the end

private:
    static constexpr auto kPatience = std::chrono::seconds(100);

    template<typename Condition>
    bool await(Condition condition)
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, kPatience, condition);
    }

    std::mutex mutex; ///< guards what follows
    std::condition_variable changed;
    std::vector<speechRecognize::SpeechResult> results;
    bool is_over = false;
};
