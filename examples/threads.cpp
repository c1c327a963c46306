// Converts many texts at once: each thread has its own converter, and all share the tables.
#include <pvzan.hpp>

#include <atomic>
#include <iostream>
#include <thread>
#include <vector>

int main() {
    const std::vector<std::string> texts(1000, "並列に変換する。");
    std::atomic<std::size_t> next{0}, wrong{0};
    const auto work = [&] {
        pvzan::converter there("utf-8", "euc-jp"), back("euc-jp", "utf-8"); // used again and again
        for (std::size_t i = next++; i < texts.size(); i = next++) {
            wrong += back.convert(there.convert(texts[i]).text).text != texts[i];
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(work);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::cout << texts.size() << " texts by " << threads.size() << " threads, " << wrong
              << " wrong\n";
}
