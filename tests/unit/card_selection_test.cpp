// The card selection's logic with the scripted toolkit and the terminal,
// over reader names of the test's choosing (the real service's readers are
// tested in tests/smartcard/).
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "diag/debug_class.h"
#include "provider/card_selection.h"
#include "support/registry_file.h"
#include "ui/scripted_toolkit.h"
#include "ui/terminal_toolkit.h"

namespace {

using platform::WideString;
using Names = std::vector<WideString>;

class ListedReaders : public ReaderService {
public:
    int32_t EstablishContext(platform::SCARDCONTEXT* context) override {
        if (establishResult) return establishResult;
        *context = 0x5C;
        ++established;
        return 0;
    }
    void ReleaseContext(platform::SCARDCONTEXT context) override {
        EXPECT_EQ(context, 0x5Cu);
        ++released;
    }
    int32_t ListReaders(platform::SCARDCONTEXT context, WideString* names) override {
        EXPECT_EQ(context, 0x5Cu);
        if (listResult) return listResult;
        names->clear();
        for (const WideString& reader : readers) *names += reader + u'\0';
        *names += u'\0';
        if (readers.empty()) *names += u'\0';
        return 0;
    }

    Names readers;
    int32_t establishResult = 0;
    int32_t listResult = 0;
    int established = 0;
    int released = 0;
};

// The token log into a file of the test's own.
class TokenLogFile {
public:
    TokenLogFile() : registry_(dir_, RegistryFile::LoggingTo(dir_ / "ksp.log")) {
        saved_ = g_pTokenLog;
        g_pTokenLog = new DebugClass(false);
    }
    ~TokenLogFile() {
        delete g_pTokenLog;
        g_pTokenLog = saved_;
    }
    std::string Text() const { return ReadFile(dir_ / "ksp.log"); }

private:
    TempDir dir_;
    RegistryFile registry_;
    DebugClass* saved_ = nullptr;
};

class SelectionLogic : public ::testing::Test {
protected:
    intptr_t Run(const std::function<void(DialogScript&)>& steps) {
        script_ = std::make_shared<DialogScript>();
        steps(*script_);
        dialog_ =
            std::make_unique<CSelectCard>(std::make_unique<ScriptedToolkit>(script_), readers_);
        return dialog_->DoModal();
    }
    WideString Selected() const {
        return dialog_->SelectedName() ? WideString(dialog_->SelectedName()) : u"(none)";
    }

    ListedReaders readers_;
    std::shared_ptr<DialogScript> script_;
    std::unique_ptr<CSelectCard> dialog_;
};

TEST_F(SelectionLogic, ListsSortedWithoutCaseSelectsTheFirstAndConfirmsTheChosen) {
    readers_.readers = {u"Bravo Reader 1", u"alpha reader 0", u"Charlie 2"};
    EXPECT_EQ(Run([](DialogScript& s) { s.ChooseReader(2).ClickOk(); }), kIdOk);
    EXPECT_EQ(script_->title, u"Corvanta KSP");
    ASSERT_TRUE(script_->initial);
    EXPECT_EQ(script_->initial->readers,
              (Names{u"alpha reader 0", u"Bravo Reader 1", u"Charlie 2"}));
    EXPECT_EQ(script_->initial->selectedReader, 0);
    EXPECT_EQ(Selected(), u"Charlie 2");
    EXPECT_EQ(dialog_->cchSelectedName(), 10u) << "the text and its NUL";
    dialog_.reset();
    EXPECT_EQ(readers_.established, 1);
    EXPECT_EQ(readers_.released, 1) << "the context goes with the dialog";

    EXPECT_EQ(Run([](DialogScript& s) { s.ClickOk(); }), kIdOk);
    EXPECT_EQ(Selected(), u"alpha reader 0") << "Enter takes the pre-selected reader";
    EXPECT_EQ(Run([](DialogScript& s) { s.ChooseReader(1).ClickCancel(); }), kIdCancel);
    EXPECT_EQ(Selected(), u"(none)");
}

TEST_F(SelectionLogic, OpeningTheListReadsTheReadersAgainAndSelectsTheFirst) {
    readers_.readers = {u"Virtual PCD 00 00"};
    EXPECT_EQ(Run([this](DialogScript& s) {
                  s.Then([this] { readers_.readers.push_back(u"attached later"); })
                      .OpenReaderList()
                      .ChooseReader(1)
                      .OpenReaderList()
                      .ClickOk();
              }),
              kIdOk);
    ASSERT_EQ(script_->snapshots.size(), 5u);
    EXPECT_EQ(script_->snapshots[0].readers, (Names{u"Virtual PCD 00 00"}))
        << "not before the list drops down";
    EXPECT_EQ(script_->snapshots[1].readers, (Names{u"attached later", u"Virtual PCD 00 00"}));
    EXPECT_EQ(script_->snapshots[1].selectedReader, 0);
    EXPECT_EQ(script_->snapshots[2].selectedReader, 1);
    EXPECT_EQ(script_->snapshots[3].readers.size(), 2u) << "rebuilt, not added to";
    EXPECT_EQ(script_->snapshots[3].selectedReader, 0) << "the earlier choice is replaced";
    EXPECT_EQ(Selected(), u"attached later");
}

TEST_F(SelectionLogic, FailuresAreLoggedInSpanishAndEndTheDialogAsCancelled) {
    TokenLogFile log;
    readers_.establishResult = static_cast<int32_t>(0x8010001D);
    EXPECT_EQ(Run([](DialogScript& s) { s.ClickOk(); }), kIdCancel);
    EXPECT_TRUE(script_->snapshots.empty());
    dialog_.reset();
    EXPECT_EQ(readers_.released, 0) << "nothing was established";

    readers_.establishResult = 0;
    readers_.listResult = static_cast<int32_t>(0x8010002E);
    EXPECT_EQ(Run([](DialogScript& s) { s.ClickOk(); }), kIdCancel);
    readers_.listResult = 0;
    EXPECT_EQ(Run([](DialogScript& s) { s.ClickOk(); }), kIdCancel) << "an empty list";
    EXPECT_EQ(Selected(), u"(none)");
    readers_.readers = {u"x"};
    EXPECT_EQ(Run([](DialogScript& s) { s.ClickOk(); }), kIdCancel) << "a one-letter name";

    // While the dialog is open: the rebuild fails the same way.
    readers_.readers = {u"Virtual PCD 00 00"};
    EXPECT_EQ(Run([this](DialogScript& s) {
                  s.Then([this] { readers_.readers.clear(); }).OpenReaderList().ClickOk();
              }),
              kIdCancel);
    EXPECT_EQ(Selected(), u"(none)");
    dialog_.reset();
    EXPECT_EQ(readers_.released, readers_.established);

    EXPECT_EQ(log.Text(),
              "SCardEstablishContext Fallido: 0x8010001D\n"
              "SCardListReaders Fallido: 0x8010002E\n"
              "No se detectaron tarjetas/fichas\n"
              "No se detectaron tarjetas/fichas\n"
              "No se detectaron tarjetas/fichas\n");
}

std::string ReadUntil(int fd, const std::string& marker) {
    std::string seen;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    char buffer[256];
    while (seen.find(marker) == std::string::npos && std::chrono::steady_clock::now() < deadline) {
        ssize_t got = read(fd, buffer, sizeof buffer);
        if (got <= 0) break;
        seen.append(buffer, static_cast<size_t>(got));
    }
    return seen;
}

TEST(SelectionOnATerminal, ShowsNumberedReadersAndTakesTheOneTyped) {
    unsetenv("QUELMKSP_PIN_INPUT");
    for (const char* keys : {"2\r", "2\x1b"}) {
        int master = -1;
        pid_t child = forkpty(&master, nullptr, nullptr, nullptr);
        ASSERT_GE(child, 0);
        if (child == 0) {
            ListedReaders readers;
            readers.readers = {u"Lector B", u"lector a"};
            CSelectCard dialog(std::make_unique<TerminalToolkit>(), readers);
            intptr_t result = dialog.DoModal();
            bool second = dialog.SelectedName() && WideString(dialog.SelectedName()) == u"Lector B";
            _exit(result == kIdOk && second ? 0 : result == kIdCancel ? 1 : 2);
        }
        std::string screen = ReadUntil(master, "Esc: Cancelar");
        EXPECT_NE(screen.find("Corvanta KSP"), std::string::npos) << screen;
        EXPECT_NE(screen.find("Por favor seleccione una tarjeta inteligente"), std::string::npos);
        EXPECT_NE(screen.find("> 1) lector a\r\n  2) Lector B"), std::string::npos) << screen;
        ASSERT_EQ(write(master, keys, 2), 2);
        screen = ReadUntil(master, "> 2) Lector B");
        int status = 0;
        waitpid(child, &status, 0);
        close(master);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), keys[1] == '\r' ? 0 : 1) << "keys " << keys[0];
    }
}

}  // namespace
