// The stores' index (cache/store_index.h) is read through the photo library in C++; it is
// not part of the Java API yet, so its methods are left out of SqliteCache and PgCache.
%define VQFE_WITHOUT_STORE_INDEX(Class)
%ignore Class::saveIndexed;
%ignore Class::needsReindex;
%ignore Class::reindex;
%ignore Class::snapshot;
%ignore Class::assignPersons;
%ignore Class::namePerson;
%ignore Class::mergePersons;
%ignore Class::personNamed;
%ignore Class::search;
%ignore Class::labelCounts;
%warnfilter(401) Class;
%enddef
VQFE_WITHOUT_STORE_INDEX(VQFeature::SqliteCache)
VQFE_WITHOUT_STORE_INDEX(VQFeature::PgCache)
