// A spinner with the elapsed time on stderr while the token works, shown
// only to a person: when stderr is a terminal. It leaves the terminal to
// the provider's PIN prompt while that reads keys, and wipes its line when
// it stops, so that nothing of it stays in the command's output.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

class ProgressIndicator {
public:
    explicit ProgressIndicator(std::string message);
    ~ProgressIndicator();
    ProgressIndicator(const ProgressIndicator&) = delete;
    ProgressIndicator& operator=(const ProgressIndicator&) = delete;

private:
    void Run();

    std::string message_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread thread_;
};
