/// Who the tool says it is.
#ifndef APP_IDENTITY_H
#define APP_IDENTITY_H

/// Sets organisation, application name and version of the application object.
void setIdentity();

#endif
