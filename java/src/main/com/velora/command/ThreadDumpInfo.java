package com.velora.command;

/** Where a thread dump lies: filled in by the native side. */
public final class ThreadDumpInfo {
    private String fileName;
    private long offset;

    public String getFileName() {
        return fileName;
    }

    public void setFileName(String fileName) {
        this.fileName = fileName;
    }

    public long getOffSet() {
        return offset;
    }

    public void setOffSet(long offset) {
        this.offset = offset;
    }
}
