// The book of captured events that neither reach the server nor are counted in a drop record.
//
// What is counted. A captured event is every event that a builder hands to a thread's queue, except
// DROPPED markers and SAMPLING events, which the transport makes for itself. For every captured
// event exactly one of these is true once the queues are empty:
//   - its record was written to the server,
//   - it is counted in one of the six numbers of a DROPPED record that was written to the server,
//   - it is counted here.
// A packet accounts for the captured events whose records it carries plus the numbers in its drop
// records; when a packet is lost, all of these are counted here. So
//     produced = records received (without kinds 11 and 39) + numbers in drop records + 1121 lines.
//
// Every loss ends in a line "Records lost: N (reason), T in total since start" (1121). Lines are
// written when a reason first occurs and then at most once a minute per reason, so that an outage
// does not flood the log; the N of all lines add up to the T of the last one, because T counts what
// was written. A stop, and a flush, write whatever is still unwritten.
//
// Threads: any. add() is one atomic addition.
#pragma once

#include <cstdint>

class Event;

enum class Loss {
    packetRefused,    // the network agent did not take the packet
    writeFailed,      // the connection broke while the packet was written
    notAcknowledged,  // written, but the server's side never acknowledged it
    connectionGone,   // built for a connection that ended before the packet's turn
    serverAway,       // cut from a queue while the server could not be reached
    threadEnded,      // left in the queue of a thread that ended meanwhile
    tooLarge,         // the record fits no packet
    notEncodable,     // the event has no record
    probeStopped,     // still queued when the probe stopped
    exit,             // still queued when the time for the last flush was over
    noMemory,         // no event could be made of the call
    count_
};

class LossBook {
public:
    LossBook() = delete;

    static void add(Loss reason, long events);
    // Writes the lines that are due; all that is unwritten when everything is set.
    static void write(bool everything);

    static long total();  // counted since the library was loaded
    static long of(Loss reason);

    // How many captured events this event stands for: 1, 0 for a SAMPLING event, the sum of its
    // numbers for a drop marker.
    static long eventsIn(const Event* event);
};
