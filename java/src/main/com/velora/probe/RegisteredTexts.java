package com.velora.probe;

/**
 * The numbers of texts that repeat (names of servlets and applications, statements, queues), so that a call hands over a
 * number instead of a text that would be copied each time. Bounded: what finds no room has the number 0, and is handed
 * over as a text.
 *
 * <p>An open hash table that readers search without a lock: slots are only ever filled, each by one write of an entry
 * that is complete.
 */
public final class RegisteredTexts {
    private static final int SLOTS = 8192;
    private static final int MOST = SLOTS / 2;
    private static final int LONGEST = 1000; // characters

    private static final class Entry {
        final String text;
        final int number;

        Entry(String text, int number) {
            this.text = text;
            this.number = number;
        }
    }

    private static final Entry[] ENTRIES = new Entry[SLOTS];
    private static volatile int count; // written under the class's lock, read ahead of it: a full table costs no lock

    private RegisteredTexts() {
    }

    /** The text's number; 0 for null and when there is no room. */
    public static int numberOf(String text) {
        if (text == null) {
            return 0;
        }
        int slot = slotOf(text);
        for (Entry entry; (entry = ENTRIES[slot]) != null; slot = (slot + 1) % SLOTS) {
            if (entry.text.equals(text)) {
                return entry.number;
            }
        }
        return count == MOST || text.length() > LONGEST ? 0 : register(text);
    }

    private static int slotOf(String text) {
        int hash = text.hashCode();
        return (hash ^ hash >>> 16) & SLOTS - 1;
    }

    private static synchronized int register(String text) {
        if (count == MOST) {
            return 0;
        }
        int slot = slotOf(text);
        for (; ENTRIES[slot] != null; slot = (slot + 1) % SLOTS) {
            if (ENTRIES[slot].text.equals(text)) {
                return ENTRIES[slot].number;
            }
        }
        int number = Capture.register(text); // 0 is kept as well: it would be the same again
        ENTRIES[slot] = new Entry(text, number); // final fields: whoever sees the entry sees it whole
        count++;
        return number;
    }
}
