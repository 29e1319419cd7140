#ifndef KESTA_VIEW_VIEWMESSAGES_H
#define KESTA_VIEW_VIEWMESSAGES_H
// The notification types that views hear and issue, interned once per process. Internal to
// the library.

namespace view_messages {

// "recordsDeleted": text lists the lost rows, each in decimal followed by one space.
int recordsDeleted();
// "recordsChanged": no text; follows a view's summary of its own losses.
int recordsChanged();

}  // namespace view_messages

#endif
