#include "Core/Logging/QLM_RaiseError.h"
#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Events.h"

#include <gtest/gtest.h>

namespace {

constexpr int32_t Note = 9001, Poster = 9002, Thrower = 9003;

std::vector<int32_t> ran;

int NoteEvent(QLMEvent& event) {
    ran.push_back(event.ints[0]);
    return 1;
}

int PostMore(QLMEvent& event) {
    ran.push_back(-1);
    auto* more = new QLMEvent(Note);
    more->ints[0] = event.ints[0] + 100;
    QLM_PostEvent(more);
    return 1;
}

int Throw(QLMEvent&) {
    QLM_PostEvent(Note);
    throw std::runtime_error("handler");
}

void PostNote(int value) {
    auto* event = new QLMEvent(Note);
    event->ints[0] = value;
    QLM_PostEvent(event);
}

class EventsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ran.clear();
        QLM_OS::Get().mouseButtonsDown = 0;
        QLM_RegisterEventHandler(Note, Note, NoteEvent);
        QLM_RegisterEventHandler(Poster, Poster, PostMore);
        QLM_RegisterEventHandler(Thrower, Thrower, Throw);
    }
    void TearDown() override {
        QLM_OS::Get().mouseButtonsDown = 0;
        QLM_FreeEvents();
    }
};

} // namespace

TEST_F(EventsTest, RunsInOrderAndWhatIsPostedMeanwhileInTheNextPass) {
    auto* poster = new QLMEvent(Poster);
    poster->ints[0] = 5;
    PostNote(1);
    QLM_PostEvent(poster);
    PostNote(2);
    EXPECT_TRUE(QLM_IsEventPending(Poster));
    QLM_ProcessEvents();
    EXPECT_EQ(ran, (std::vector<int32_t>{1, -1, 2}));
    EXPECT_TRUE(QLM_IsEventPending(Note));
    EXPECT_EQ(QLM_PendingEventText(), "event 9001");
    QLM_ProcessEvents();
    EXPECT_EQ(ran, (std::vector<int32_t>{1, -1, 2, 105}));
    EXPECT_FALSE(QLM_AreEventsPending());
    EXPECT_FALSE(QLM_OS::Get().IsBusy());
}

TEST_F(EventsTest, WaitsWhileAButtonIsDown) {
    PostNote(1);
    PostNote(2);
    QLM_OS::Get().mouseButtonsDown = 1;
    QLM_ProcessEvents();
    EXPECT_TRUE(ran.empty());
    PostNote(3);
    QLM_OS::Get().mouseButtonsDown = 0;
    QLM_ProcessEvents();
    EXPECT_EQ(ran, (std::vector<int32_t>{1, 2, 3}));
}

TEST_F(EventsTest, AFailingHandlerLeavesTheQueueUsable) {
    QLM_PostEvent(Thrower);
    PostNote(1);
    EXPECT_THROW(QLM_ProcessEvents(), std::runtime_error);
    // The event behind the failed one, then the one that it posted.
    QLM_ProcessEvents();
    EXPECT_EQ(ran, (std::vector<int32_t>{1, 0}));
}

TEST_F(EventsTest, SendingRunsAtOnceAndPrefersTheCallback) {
    EXPECT_EQ(QLM_SendEvent(nullptr, 0, 8999), 0);
    EXPECT_EQ(QLM_SendEvent(NoteEvent, 0, Poster), 1);
    EXPECT_EQ(ran, std::vector<int32_t>{0});
    EXPECT_FALSE(QLM_AreEventsPending());
    // An identifier that nobody knows is dropped without a word.
    QLM_PostEvent(8999);
    QLM_ProcessEvents();
    EXPECT_FALSE(QLM_AreEventsPending());
}

TEST_F(EventsTest, OwnsItsStringsAndCopiesDeeply) {
    QLMEvent event(77u, Note);
    char text[] = "first";
    event.AddStringParameter(text, 15);
    text[0] = 'x';
    event.AddStringParameter("second", 0);
    event.AddStringParameter("third", 0);
    event.ints[3] = 3;
    event.floats[4] = 0.5f;
    event.ids[5] = 70001;
    const QLMEvent copy(event);
    event.AddStringParameter("gone", 15);
    EXPECT_STREQ(copy.GetStringParameter(15), "first");
    EXPECT_STREQ(copy.GetStringParameter(0), "third");
    EXPECT_EQ(copy.GetStringParameter(1), nullptr);
    EXPECT_EQ(copy.targetID, 77u);
    EXPECT_EQ(copy.ints[3], 3);
    EXPECT_EQ(copy.floats[4], 0.5f);
    EXPECT_EQ(copy.ids[5], 70001u);
    EXPECT_EQ(copy.callback, &NoteEvent);
    EXPECT_EQ(QLMEvent(QLMEvent(PostMore, 0, Note)).callback, &PostMore);

    const auto message = [](auto&& call) {
        try {
            call();
        } catch (const QLM_Exception& failure) { return std::string(failure.what()); }
        return std::string();
    };
    for (int i : {16, -1})
        EXPECT_EQ(message([&] { event.AddStringParameter("a", i); }),
                  "i is out of range in QLMEvent::AddStringParameter()");
    EXPECT_EQ(message([&] { event.GetStringParameter(16); }), "i is out of range in QLMEvent::GetStringParameter(16)");
}
