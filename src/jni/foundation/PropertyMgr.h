// The collector's settings: one flat table read once from the properties file that applies to this
// node and server, with typed getters and change listeners.
//
// Ownership: frees its keys, values and lists; returned texts belong to the table.
// Threads: reads take no lock (the table is written at load time and by the rare setters, which
// hold lock_).
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "foundation/VelHashTable.h"
#include "foundation/VelLock.h"
#include "foundation/VeloraBase.h"

// Told when a property that existed gets a new value; called under the manager's lock.
class PropertyListener {
public:
    virtual ~PropertyListener() = default;
    virtual void propertyChanged(const char* key, const char* value) = 0;
};

class PropertyMgr : public virtual VeloraBase {
public:
    static PropertyMgr* getInstance();  // made, loaded and only then published on first call
    static void destroy();
    ~PropertyMgr() override;

    void start();
    void stop();

    const char* getProperty(const char* key) const;  // null when absent
    const char* getStringProperty(const char* key, const char* def) const;
    int getIntProperty(const char* key, int def) const;  // atoi of the text
    long getLongProperty(const char* key, long def) const;
    double getFloatProperty(const char* key, double def) const;

    void putProperty(const char* key, const char* value);
    void putIntProperty(const char* key, int value);
    void putLongProperty(const char* key, long value);  // intended: keeps the low 32 bits only
    void putFloatProperty(const char* key, double value);
    void updateProperty(const char* key, const char* value);  // tells the listeners when it existed

    bool addPropertyListener(PropertyListener* listener);
    bool removePropertyListener(PropertyListener* listener);

    const char* getFileName() const { return fileName_; }  // the file in use

    // The value of key when it lies in [lowest, highest], else the nearest of the two, with one
    // warning that names key, value and replacement (1101). A value that is no number counts as out
    // of range and gives def.
    long getBoundedProperty(const char* key, long def, long lowest, long highest) const;

    static const char* const prop_names[];  // the known keys, null-terminated

private:
    PropertyMgr();
    void initialize();
    void initializeAfterJVMPI();
    void loadProperties();
    void parseProperty(char* line);
    static char* strtrim(char* text);
    void putInternalProp(const char* key, const char* value);
    const char* getInternalProp(const char* key) const;

    bool isRegistered(PropertyListener* listener);  // caller holds lock_
    void warnOnce(const char* key, const char* value, long used) const;

    VelList<PropertyListener*> list_;
    VelHashTable<char*, char*> props_;  // keys and values are freed by the destructor
    VelLock* lock_;                     // owned; guards writes of props_, retired_ and list_
    char* fileName_ = nullptr;          // owned; null: no file was found

    // Values that were replaced. Readers hold such texts without a lock, so they live as long as
    // the manager; settings change rarely.
    std::vector<std::unique_ptr<char[]>> retired_;

    mutable std::mutex warnedLock_;         // guards warned_
    mutable std::set<std::string> warned_;  // keys whose unusable value was reported

    static std::atomic<PropertyMgr*> instance_;
};
