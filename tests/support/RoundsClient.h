#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cloudclientlib/wrappers/GateClient.h"

namespace test {

/// A client whose tasks of some kinds are held at a gate until somebody waits for one of them; then all that are held
/// pass together, which makes one round: what a far store needs one round trip for.
///
/// For one thread. Nothing waits for ever: a caller that waits for each task by itself makes many rounds of one.
class RoundsClient : public cloudclientlib::CInterceptingClient {
public:
    RoundsClient(const std::shared_ptr<cloudclientlib::ICloudClient>& inner, const cloudclientlib::operation_set& kinds)
        : RoundsClient(std::make_shared<Rounds>(inner, kinds)) {}

    /// How many tasks passed in each round.
    [[nodiscard]] const std::vector<std::size_t>& GetRounds() const { return rounds_->sizes; }
    /// How many are held now.
    [[nodiscard]] std::size_t GetHeld() const { return rounds_->gate->GetHeld(); }

private:
    struct Rounds : cloudclientlib::IInterceptor, std::enable_shared_from_this<Rounds> {
        Rounds(const std::shared_ptr<cloudclientlib::ICloudClient>& inner, cloudclientlib::operation_set held)
            : gate(std::make_shared<cloudclientlib::CGateClient>(inner, held)), kinds(std::move(held)) {
            gate->Close();
        }

        task::task_ptr OnTask(const cloudclientlib::SInterceptedCall& call, start_t start) override {
            const auto task = start();
            return kinds.contains(call.operation) ? std::make_shared<Held>(shared_from_this(), task, arrived++) : task;
        }
        void OnCall(const cloudclientlib::SInterceptedCall&, const run_t& run) override { run(); }
        std::shared_ptr<cloudclientlib::IDownloadStream> WrapDownload(
            const std::string&, std::shared_ptr<cloudclientlib::IDownloadStream> inner) override {
            return inner;
        }
        std::shared_ptr<cloudclientlib::IUploadStream> WrapUpload(
            const std::string&, std::shared_ptr<cloudclientlib::IUploadStream> inner) override {
            return inner;
        }

        void LetPass(std::size_t number) {
            if (number >= passed) {
                sizes.push_back(gate->GetHeld());
                passed += gate->GetHeld();
                gate->Release(gate->GetHeld());
            }
        }

        const std::shared_ptr<cloudclientlib::CGateClient> gate;
        const cloudclientlib::operation_set kinds;
        std::size_t arrived = 0;
        std::size_t passed = 0;
        std::vector<std::size_t> sizes;
    };

    class Held : public task::IAsyncTask {
    public:
        Held(std::shared_ptr<Rounds> rounds, task::task_ptr inner, std::size_t number)
            : rounds_(std::move(rounds)), inner_(std::move(inner)), number_(number) {}
        void Wait() override {
            rounds_->LetPass(number_);
            inner_->Wait();
        }

    private:
        const std::shared_ptr<Rounds> rounds_;
        const task::task_ptr inner_;
        const std::size_t number_;
    };

    explicit RoundsClient(const std::shared_ptr<Rounds>& rounds)
        : CInterceptingClient(rounds->gate, rounds), rounds_(rounds) {}

    const std::shared_ptr<Rounds> rounds_;
};

}  // namespace test
