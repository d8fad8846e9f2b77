#pragma once

#include "multimedia/speechrecognizer/speechservice.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <thread>
#include <vector>

/// A speech service that hears nothing and says what a test tells it to. It stands in the place of the
/// system's while it lives. One thread, but for the handlers, which are called on another one.
class ScriptedSpeech : public speechRecognize::SpeechService
{
public:
    struct Started
    {
        std::string path;
        std::string locale;
        speechRecognize::PcmAudio audio; ///< of a buffer
        ResultHandler handler;
        int cancels = 0;
    };

    ScriptedSpeech() { setInstance(this); }
    ~ScriptedSpeech() override { setInstance(nullptr); }

    Authorization status = Authorization::Authorized;
    int asked = 0;                               ///< how often the status was asked for
    std::vector<AuthorizationHandler> questions; ///< to the user, not answered yet
    bool refuses = false;                        ///< starts no task
    std::vector<Started> tasks;

    void answer(Authorization authorization)
    {
        const AuthorizationHandler handler = questions.front();
        questions.erase(questions.begin());
        std::thread([&] { handler(authorization); }).join();
    }
    /// A result of task `number`, the first one being 1.
    void tell(Task number, int segments, const char* text, bool is_final = false)
    {
        call(number, {segments, text, is_final}, {});
    }
    void fail(Task number) { call(number, {9, "not to be told", false}, "no service"); }

    Authorization authorizationStatus() override
    {
        ++asked;
        return status;
    }
    void requestAuthorization(AuthorizationHandler answered) override { questions.push_back(answered); }
    bool isAvailable(const std::string& locale) override { return locale == "de_DE"; }
    std::vector<speechRecognize::SpeechModel> models() override
    {
        return {{"Script", "de_DE", "/script"}, {"Script", "zh", "/script"}};
    }
    speechRecognize::SpeechModel answering() override
    {
        return tasks.empty() ? speechRecognize::SpeechModel() : models().front();
    }
    Task recognizeFile(const std::string& path, const std::string& locale, ResultHandler handler) override
    {
        return start({path, locale, {}, std::move(handler)});
    }
    Task recognizeBuffer(const speechRecognize::PcmAudio& audio, const std::string& locale,
                         ResultHandler handler) override
    {
        return start({{}, locale, audio, std::move(handler)});
    }
    void cancel(Task task) override { ++tasks[task - 1].cancels; }

private:
    Task start(Started started)
    {
        if (refuses)
            return 0;
        tasks.push_back(std::move(started));
        return tasks.size();
    }
    void call(Task number, const speechRecognize::SpeechResult& result, const std::string& error)
    {
        const ResultHandler handler = tasks.at(number - 1).handler;
        std::thread([&] { handler(result, error); }).join();
    }
};
