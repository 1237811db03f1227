# The installed tree is one folder, the same as in the build tree.
