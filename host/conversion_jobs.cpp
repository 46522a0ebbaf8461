#include "conversion_jobs.hpp"

#include "conversion_run.hpp"
#include "end_request.hpp"
#include "input_file.hpp"
#include "job_pool.hpp"
#include "packets_line.hpp"
#include "progress.hpp"
#include "terminal.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace host {

namespace {

/// Passes on how many bytes of an input's recording the packets stand for that are done.
class told_progress : public progress_view {
  public:
    told_progress(const job_report& report, const std::string& input)
        : report_(report), input_(input) {}

    void show(std::uint64_t packets) override {
        const auto now = std::chrono::steady_clock::now();
        if (now < next_) {
            return;
        }
        next_ = now + interval;
        if (!scale_) {
            scale_ = packets_of(input_);
        }
        if (scale_->total != 0) {
            const double share = static_cast<double>(packets) / static_cast<double>(scale_->total);
            report_.progress(static_cast<std::uint64_t>(std::min(1.0, share) *
                                                        static_cast<double>(scale_->bytes)));
        }
    }

  private:
    static constexpr auto interval = std::chrono::milliseconds(100);

    const job_report& report_;
    const std::string& input_;
    std::optional<progress_scale> scale_;
    std::chrono::steady_clock::time_point next_;
};

/// What a child tells of its conversion: code, signal, whether it was skipped, and the JSON line.
std::string text_of(const conversion_outcome& outcome) {
    return std::string{static_cast<char>(outcome.code), static_cast<char>(outcome.ended_by),
                       static_cast<char>(outcome.skipped)} +
           outcome.json;
}

conversion_outcome outcome_from(const std::string& text) {
    return {static_cast<exit_code>(text[0]), text[1], text[2] != 0, text.substr(3)};
}

/// The child's life: one input, as in a process alone.
void convert_in_child(const convert_options& options, const std::string& input, end_request& end,
                      const job_report& report) {
    if (options.json) {
        ::dup2(STDERR_FILENO, STDOUT_FILENO);
    }
    told_progress shown(report, input);
    const conversion_result result = convert_one(options, input, shown, end);
    report_failure(result);
    if (!options.json) {
        print_summary(result);
    }
    report.result(text_of(outcome_of(result)));
}

std::string words_of(int status) {
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        return "its process was ended by signal " + std::to_string(signal) + " (" +
               strsignal(signal) + ")";
    }
    return "its process ended before it told what it did";
}

/// All inputs, and how far they are.
class campaign {
  public:
    explicit campaign(const convert_options& options)
        : options_(options)
        , pool_({[this](int signal) { end_.stop(signal); },
                 [this](int signal) { end_.cancel(signal); }},
                {[this](std::size_t number, std::uint64_t done) { show(number, done); },
                 [this] { line_.clear(); }})
        , inputs_(options.inputs.size())
        , line_("", {"bytes", 0, 0}) {
        for (std::size_t i = 0; i < inputs_.size(); ++i) {
            inputs_[i].bytes = bytes_of_input(options.inputs[i]);
            total_ += inputs_[i].bytes;
        }
    }

    std::vector<conversion_outcome> run() {
        while (next_ < inputs_.size() || pool_.running() != 0) {
            start_some();
            if (pool_.running() != 0) {
                for (const job_end& end : pool_.wait()) {
                    take(end);
                }
            }
            tell();
        }
        line_.clear();
        std::vector<conversion_outcome> outcomes;
        for (input& i : inputs_) {
            outcomes.push_back(std::move(*i.outcome));
        }
        return outcomes;
    }

  private:
    struct input {
        std::uint64_t bytes = 0; ///< of its files
        std::uint64_t done = 0;  ///< of them
        std::string summary;
        std::optional<conversion_outcome> outcome;
    };

    const std::string& name_of(std::size_t number) const { return options_.inputs[number]; }
    std::string output_of(std::size_t number) const {
        return options_.output_of(name_of(number)).string();
    }

    void start_some() {
        while (next_ < inputs_.size() && pool_.running() < options_.jobs) {
            if (pool_.signals() != 0) {
                finish(next_, not_converted(name_of(next_), output_of(next_), pool_.last_signal()));
                ++next_;
                continue;
            }
            const std::string reason =
                pool_.start(next_, [this](std::size_t number, const job_report& report) {
                    convert_in_child(options_, name_of(number), end_, report);
                });
            if (!reason.empty() && pool_.running() != 0) {
                return; // it may be better when one of these has ended
            }
            if (!reason.empty()) {
                fail(next_, "no process can be made: " + reason);
            }
            ++next_;
        }
    }

    void take(const job_end& end) {
        inputs_[end.number].summary = end.output;
        if (end.told) {
            settle(end.number, outcome_from(end.result));
        } else {
            fail(end.number, words_of(end.status));
        }
    }

    void fail(std::size_t number, const std::string& reason) {
        conversion_result result;
        result.input = name_of(number);
        result.output = output_of(number);
        result.text = reason;
        result.code = exit_code::internal_failure;
        finish(number, result);
    }

    void finish(std::size_t number, const conversion_result& result) {
        line_.clear();
        report_failure(result);
        settle(number, outcome_of(result));
    }

    /// What was skipped is no work, and would make the rate look better than it is.
    void settle(std::size_t number, conversion_outcome outcome) {
        input& settled = inputs_[number];
        if (outcome.skipped) {
            total_ -= settled.bytes;
            settled.bytes = 0;
        }
        settled.outcome = std::move(outcome);
        ++settled_;
        show(number, settled.bytes);
    }

    /// Prints the summaries whose turn has come.
    void tell() {
        for (; told_ < inputs_.size() && inputs_[told_].outcome; ++told_) {
            const std::string& summary = inputs_[told_].summary;
            if (!summary.empty()) {
                line_.clear();
                std::fwrite(summary.data(), 1, summary.size(), stdout);
                std::fflush(stdout);
            }
        }
    }

    void show(std::size_t number, std::uint64_t done) {
        done_ += done - inputs_[number].done;
        inputs_[number].done = done;
        line_.change(std::to_string(settled_) + " of " + std::to_string(inputs_.size()), total_);
        line_.show(done_);
    }

    const convert_options& options_;
    end_request end_;
    job_pool pool_;
    std::vector<input> inputs_;
    progress_line line_;
    std::uint64_t total_ = 0;
    std::uint64_t done_ = 0;
    std::size_t next_ = 0; ///< to start
    std::size_t told_ = 0;
    std::size_t settled_ = 0;
};

} // namespace

std::vector<conversion_outcome> convert_in_processes(const convert_options& options) {
    return campaign(options).run();
}

} // namespace host
