// Event agents and network agents at work: what the tests of single agents and of the whole pool do
// with them.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "TransportFixture.h"

class EventAgentTest : public TransportFixture {
protected:
    // Both kinds of agents are up, the initial records are out, nothing is queued.
    void runReady(int eventAgents = 1, int networkAgents = 1) {
        runAll(eventAgents, networkAgents);
        pass(eventAgents, networkAgents);
        pass(eventAgents, networkAgents);
    }
    // Everybody makes one pass, event agents first, and the network agents get everything out.
    void pass(int eventAgents = 1, int networkAgents = 1) {
        for (int id = 0; id < eventAgents; ++id) gate.step("e" + std::to_string(id));
        for (int i = 0; i < 3; ++i)
            for (int id = 0; id < networkAgents; ++id) gate.step("n" + std::to_string(id));
    }
    // What arrived, once as many captured events have come as drop counts and losses leave over.
    Received arrived() {
        server.waitUntil([this] { return true; });
        Received got;
        for (int i = 0; i < 2000; ++i) {
            got = received();
            if (got.events + got.dropped + LossBook::total() >= produced) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return got;
    }
    // Bytes received once what runReady() sent has been read: the sampling record is its last.
    std::size_t settledBytes() {
        for (int i = 0; i < 10000 && received().samplings == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return server.receivedBytes();
    }
    static void appendNamed(ThreadData* thread, char id) {  // not droppable
        static char name[] = "m";
        auto* const event = new PortalMethodConstantEvent(NOSTYPE);
        event->methodId = id;
        event->methodName = name;
        thread->appendEvent(event);
    }
    // An SQL event with a text of so many characters.
    void produceLong(ThreadData* thread, std::size_t length) {
        auto* const event = new SQLEvent(START);
        event->data_source_name = emptyText();
        event->sql = new char[length + 1]{};
        std::memset(event->sql, 'x', length);
        event->noteText(static_cast<int>(length + 1));
        ++produced;
        thread->appendEvent(event);
    }
    static void end(ThreadData* thread) { thread->resetOnThreadEnd(); }
    std::vector<std::uint8_t> lastBytes(std::size_t count, std::size_t connection = 0) {
        std::vector<std::uint8_t> all = server.bytes(connection);
        return {all.end() - static_cast<long>(std::min(count, all.size())), all.end()};
    }
};
