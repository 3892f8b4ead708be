// The shared object is built from the whole module library; this unit only
// gives the linker a source of its own for that target.
