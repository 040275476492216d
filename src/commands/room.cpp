// Placeholder until the room's first source.
