// The effects manager and its gel list as the application object sees them: work that runs until
// done, and a frame that repaints what changed. The full managers derive from these; the base
// classes have nothing pending and nothing dirty.
#pragma once

namespace tarvik {

class QGelList {
public:
    virtual ~QGelList() {}
    virtual bool AnyDirty() const { return false; }
};

class QFXManager {
public:
    virtual ~QFXManager() {}
    virtual void Run() {}                // steps the effects that are under way
    virtual void Frame(bool force) {}    // repaints the gels that changed, or all with 'force'
};

} // namespace tarvik
