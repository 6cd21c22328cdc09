"""What a client needs of a published distribution."""
