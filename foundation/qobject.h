// QObject: the root of the tree's own classes, an object with a name that can report itself.
#pragma once

namespace tarvik {

class QObject {
public:
    QObject() : objectName(nullptr) {}
    QObject(const QObject&) = delete;
    QObject& operator=(const QObject&) = delete;
    virtual ~QObject();

    virtual const char* ClassName() const { return "QObject"; }
    virtual void DbgReport() const; // "@%p %s (class %s)\n" through qmsginfo

    void SetName(const char* newName); // heap copy; null gives "<null-named>"
    const char* GetName() const;       // "<unnamed_QObject>" without a name

private:
    char* objectName; // owned, from qstrdup
};

} // namespace tarvik
