// The operations that _WindowsPinnedRoot puts in the place of PinnedRoot's, and those that it adds,
// in the order of the class body.
#pragma once

#include "client_manifest.h"

namespace client_manifest::windows {

extern const host::Operation kWindowsInit;
extern const host::Operation kWindowsClose;
extern const host::Operation kWindowsAssertRootUnchanged;
extern const host::Operation kWindowsOpenContainedRoot;
extern const host::Operation kWindowsWriteAtomic;
extern const host::Operation kWindowsOpenRegularFileForUpdate;
extern const host::Operation kWindowsOpenRegularFileForRead;
extern const host::Operation kWindowsRemoveRegularFile;
extern const host::Operation kWindowsReplaceRegularFile;
extern const host::Operation kWindowsMoveRegularFileTo;
extern const host::Operation kWindowsRemoveRegularFilesWithSuffix;
extern const host::Operation kWindowsRemoveRegularFilesInPrefixes;
extern const host::Operation kWindowsListDirectoryNames;
extern const host::Operation kWindowsEnsureDirectory;
extern const host::Operation kWindowsRemoveDirectoryTree;
extern const host::Operation kWindowsAssertReplaceableLeaf;
extern const host::Operation kWindowsAssertPathMatchesRegularFile;
extern const host::Operation kWindowsOpenParent;
extern const host::Operation kWindowsOpenAbsoluteDirectory;
extern const host::Operation kWindowsOpenDirectoryComponents;
extern const host::Operation kWindowsRequireDescriptor;
extern const host::Operation kAssertParentPathMatches;
extern const host::Operation kAssertDirectoryPathMatches;
extern const host::Operation kAssertLeafMissing;
extern const host::Operation kRequireSafeDirectory;
extern const host::Operation kRequireSafeRegular;

}  // namespace client_manifest::windows
